// Every file of the PngSuite through load_memory: the outcome our reader's rules give, and the
// pixels of every file that loads against Pillow (libpng for 16-bit colour, which Pillow cuts
// to 8 bits).
#include <gtest/gtest.h>

#include <map>

#include "codec/codec.h"
#include "support.h"

using namespace codec_test;

namespace {

struct Expectation {
    bool loads;
    const char* rule;
};

const char* const kDepth1 = "bit depth 1: only 8 and 16 are read";
const char* const kDepth2 = "bit depth 2: only 8 and 16 are read";
const char* const kDepth4 = "bit depth 4: only 8 and 16 are read";
const char* const kValid = "8 or 16 bits, every chunk sound";

// Files not named here load (kValid); the rest are refused for the rule given.
const std::map<std::string, Expectation> kRefused = {
    {"basi0g01.png", {false, kDepth1}}, {"basi0g02.png", {false, kDepth2}}, {"basi0g04.png", {false, kDepth4}},
    {"basi3p01.png", {false, kDepth1}}, {"basi3p02.png", {false, kDepth2}}, {"basi3p04.png", {false, kDepth4}},
    {"basn0g01.png", {false, kDepth1}}, {"basn0g02.png", {false, kDepth2}}, {"basn0g04.png", {false, kDepth4}},
    {"basn3p01.png", {false, kDepth1}}, {"basn3p02.png", {false, kDepth2}}, {"basn3p04.png", {false, kDepth4}},
    {"ch1n3p04.png", {false, kDepth4}}, {"cm0n0g04.png", {false, kDepth4}}, {"cm7n0g04.png", {false, kDepth4}},
    {"cm9n0g04.png", {false, kDepth4}}, {"ct0n0g04.png", {false, kDepth4}}, {"ct1n0g04.png", {false, kDepth4}},
    {"cten0g04.png", {false, kDepth4}}, {"ctfn0g04.png", {false, kDepth4}}, {"ctgn0g04.png", {false, kDepth4}},
    {"cthn0g04.png", {false, kDepth4}}, {"ctjn0g04.png", {false, kDepth4}}, {"ctzn0g04.png", {false, kDepth4}},
    {"f99n0g04.png", {false, kDepth4}}, {"g03n3p04.png", {false, kDepth4}}, {"g04n3p04.png", {false, kDepth4}},
    {"g05n3p04.png", {false, kDepth4}}, {"g07n3p04.png", {false, kDepth4}}, {"g10n3p04.png", {false, kDepth4}},
    {"g25n3p04.png", {false, kDepth4}}, {"s01i3p01.png", {false, kDepth1}}, {"s01n3p01.png", {false, kDepth1}},
    {"s02i3p01.png", {false, kDepth1}}, {"s02n3p01.png", {false, kDepth1}}, {"s03i3p01.png", {false, kDepth1}},
    {"s03n3p01.png", {false, kDepth1}}, {"s04i3p01.png", {false, kDepth1}}, {"s04n3p01.png", {false, kDepth1}},
    {"s05i3p02.png", {false, kDepth2}}, {"s05n3p02.png", {false, kDepth2}}, {"s06i3p02.png", {false, kDepth2}},
    {"s06n3p02.png", {false, kDepth2}}, {"s07i3p02.png", {false, kDepth2}}, {"s07n3p02.png", {false, kDepth2}},
    {"s08i3p02.png", {false, kDepth2}}, {"s08n3p02.png", {false, kDepth2}}, {"s09i3p02.png", {false, kDepth2}},
    {"s09n3p02.png", {false, kDepth2}}, {"s32i3p04.png", {false, kDepth4}}, {"s32n3p04.png", {false, kDepth4}},
    {"s33i3p04.png", {false, kDepth4}}, {"s33n3p04.png", {false, kDepth4}}, {"s34i3p04.png", {false, kDepth4}},
    {"s34n3p04.png", {false, kDepth4}}, {"s35i3p04.png", {false, kDepth4}}, {"s35n3p04.png", {false, kDepth4}},
    {"s36i3p04.png", {false, kDepth4}}, {"s36n3p04.png", {false, kDepth4}}, {"s37i3p04.png", {false, kDepth4}},
    {"s37n3p04.png", {false, kDepth4}}, {"s38i3p04.png", {false, kDepth4}}, {"s38n3p04.png", {false, kDepth4}},
    {"s39i3p04.png", {false, kDepth4}}, {"s39n3p04.png", {false, kDepth4}}, {"s40i3p04.png", {false, kDepth4}},
    {"s40n3p04.png", {false, kDepth4}}, {"tbbn0g04.png", {false, kDepth4}}, {"tm3n3p02.png", {false, kDepth2}},
    {"xc1n0g08.png", {false, "colour type 1 does not exist"}},
    {"xc9n2c08.png", {false, "colour type 9 does not exist"}},
    {"xcrn0g04.png", {false, "signature damaged (a CR added)"}},
    {"xcsn0g01.png", {false, "bit depth 1, decided at IHDR before the bad IDAT CRC is reached"}},
    {"xd0n2c08.png", {false, "bit depth 0"}},
    {"xd3n2c08.png", {false, "bit depth 3"}},
    {"xd9n2c08.png", {false, "bit depth 99"}},
    {"xdtn0g01.png", {false, "bit depth 1 (and it has no IDAT either)"}},
    {"xhdn0g08.png", {false, "CRC of IHDR does not match"}},
    {"xlfn0g04.png", {false, "signature damaged (a LF added)"}},
    {"xs1n0g01.png", {false, "signature damaged"}}, {"xs2n0g01.png", {false, "signature damaged"}},
    {"xs4n0g01.png", {false, "signature damaged"}}, {"xs7n0g01.png", {false, "signature damaged"}},
};

std::vector<fs::path> suite_files() {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(kPngSuite))
        if (entry.path().extension() == ".png") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

TEST(PngSuite, EveryFileHasTheOutcomeOfOurRulesAndTheJudgesPixels) {
    const auto files = suite_files();
    ASSERT_GE(files.size(), 170u) << "PngSuite not found in " << kPngSuite;
    const fs::path judged = scratch_dir("pngsuite");
    std::string command = kPython + " " + kOracle + " decode " + judged.string();
    for (const auto& file : files) command += " " + file.string();
    ASSERT_EQ(run(command), 0);

    size_t loaded = 0, byPillow = 0, byLibpng = 0;
    for (const auto& file : files) {
        const std::string name = file.filename().string();
        SCOPED_TRACE(name);
        const auto refused = kRefused.find(name);
        const Expectation expected = refused == kRefused.end() ? Expectation{true, kValid} : refused->second;
        const Bytes bytes = read_file(file);
        ot::png::Image image;
        const bool ok = ot::png::load_memory(bytes.data(), bytes.size(), image);
        ASSERT_EQ(ok, expected.loads) << expected.rule;
        if (!ok) {
            EXPECT_EQ(image.width, 0u);
            EXPECT_TRUE(image.pixels.empty());
            continue;
        }
        ++loaded;
        const Pixels ours{image.width, image.height, image.pixels};
        Pixels judge;
        if (read_rgba_file(judged / (name + ".rgba"), judge)) {
            EXPECT_TRUE(ours == judge) << "differs from Pillow";
            ++byPillow;
        }
        ASSERT_TRUE(libpng_decode(file, judge));
        EXPECT_TRUE(ours == judge) << "differs from libpng";
        ++byLibpng;
    }
    EXPECT_EQ(loaded, files.size() - kRefused.size());
    EXPECT_EQ(byLibpng, loaded);
    EXPECT_GE(byPillow, loaded - 20);  // only the 16-bit colour files lack a Pillow verdict
    fs::remove_all(judged);
}
