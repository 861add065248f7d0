// A corpus written by Pillow and ImageMagick at test time: every file decoded by us must give the
// judge's pixels; every image we write must be read back by the judges with the same pixels.
#include <gtest/gtest.h>

#include "codec/codec.h"
#include "support.h"

using namespace codec_test;

namespace {

// Copies the judge's colour into `ours` wherever both are fully transparent.
void forget_hidden_colour(Pixels& ours, const Pixels& judge) {
    if (ours.rgba.size() != judge.rgba.size()) return;
    for (size_t i = 0; i < ours.rgba.size(); i += 4)
        if (ours.rgba[i + 3] == 0 && judge.rgba[i + 3] == 0) std::copy_n(&judge.rgba[i], 3, &ours.rgba[i]);
}

class Corpus : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir_ = scratch_dir("corpus");
        ASSERT_EQ(run(kPython + " " + kOracle + " corpus " + dir_.string()), 0);
        std::ifstream manifest(dir_ / "manifest.txt");
        for (std::string name; std::getline(manifest, name);) names_.push_back(name);
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }

    static bool is_png(const std::string& name) { return name.ends_with(".png"); }

    static inline fs::path dir_;
    static inline std::vector<std::string> names_;
};

}  // namespace

TEST_F(Corpus, EveryFileGivesTheOutsideDecodersPixels) {
    ASSERT_GE(names_.size(), 50u);
    size_t judgedByPillowOrMagick = 0;
    for (const auto& name : names_) {
        SCOPED_TRACE(name);
        ot::png::Image image;
        ASSERT_TRUE(ot::png::load_file((dir_ / name).c_str(), image));
        Pixels ours{image.width, image.height, image.pixels};
        Pixels judge;
        if (read_rgba_file(dir_ / (name + ".rgba"), judge)) {
            // Over a transparent canvas, our blend keeps the colour of a transparent source pixel
            // while Pillow's leaves the canvas colour: only visible colour is compared there.
            if (name.starts_with("apng")) forget_hidden_colour(ours, judge);
            EXPECT_TRUE(ours == judge) << "differs from Pillow or ImageMagick";
            ++judgedByPillowOrMagick;
        }
        // libpng knows no animation; for a still PNG it judges every sample, 16-bit ones too.
        if (is_png(name) && !name.starts_with("apng")) {
            ASSERT_TRUE(libpng_decode(dir_ / name, judge));
            EXPECT_TRUE(ours == judge) << "differs from libpng";
        }
    }
    EXPECT_GE(judgedByPillowOrMagick, names_.size() - 6);  // only 16-bit colour PNG lack one
}

TEST_F(Corpus, FilesWeWriteAreReadBackByTheOutsideDecoders) {
    const fs::path out = dir_ / "written";
    fs::create_directories(out);
    std::vector<std::pair<fs::path, Pixels>> written;
    for (const auto& name : names_) {
        ot::png::Image image;
        ASSERT_TRUE(ot::png::load_file((dir_ / name).c_str(), image));
        const Pixels source{image.width, image.height, image.pixels};
        const auto w = int32_t(image.width), h = int32_t(image.height);
        const std::string stem = fs::path(name).stem().string();
        const fs::path png = out / (stem + ".png"), bmp = out / (stem + ".bmp"), tga = out / (stem + ".tga");
        ASSERT_TRUE(ot::png::save_png_rgba8_file(png.c_str(), image.pixels.data(), w, h));
        ASSERT_TRUE(ot::png::save_bmp_rgba8_file(bmp.c_str(), image.pixels.data(), w, h));
        ASSERT_TRUE(ot::png::save_tga_rgba8_file(tga.c_str(), image.pixels.data(), w, h));
        for (const auto& path : {png, bmp, tga}) written.emplace_back(path, source);
    }
    std::string command = kPython + " " + kOracle + " decode " + (out / "judged").string();
    std::string pngcheck = "pngcheck -q";
    for (const auto& [path, source] : written) {
        command += " " + path.string();
        if (path.extension() == ".png") pngcheck += " " + path.string();
    }
    ASSERT_EQ(run(command), 0);
    EXPECT_EQ(run(pngcheck + " > /dev/null"), 0) << "pngcheck finds fault with a file we wrote";

    for (const auto& [path, source] : written) {
        SCOPED_TRACE(path.string());
        Pixels judge;
        ASSERT_TRUE(read_rgba_file(out / "judged" / (path.filename().string() + ".rgba"), judge));
        EXPECT_TRUE(source == judge) << "Pillow reads other pixels";
        if (path.extension() == ".png") {
            ASSERT_TRUE(libpng_decode(path, judge));
            EXPECT_TRUE(source == judge) << "libpng reads other pixels";
        }
        ot::png::Image back;
        ASSERT_TRUE(ot::png::load_file(path.c_str(), back));
        EXPECT_TRUE((Pixels{back.width, back.height, back.pixels} == source)) << "we read back other pixels";
    }
}
