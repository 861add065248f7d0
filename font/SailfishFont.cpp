#include "font/SailfishFont.h"

#include <QColor>
#include <QFont>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvane::font {

struct SailfishFont {
    QFont font;
    int32_t id = -1;  // the application font added for it, -1 for none
};

namespace {

constexpr int kMargin = 2;  // pixels around the text on each side

// Qt's font database needs the application object; a window made later finds this one.
void ensure_application() {
    if (QCoreApplication::instance()) return;
    QCoreApplication::setAttribute(Qt::AA_SynthesizeMouseForUnhandledTouchEvents, true);
    static int argc = 1;
    static char name[] = "OrvaneTide";
    static char* argv[] = {name, nullptr};
    new QGuiApplication(argc, argv);
}

int pixelSizeOf(float size) { return std::isfinite(size) ? int(std::max(1L, std::lround(std::min(size, 1e6f)))) : 1; }
int clampByte(long value) { return int(std::clamp<long>(value, 0, 255)); }

}  // namespace

SailfishFont* sailfish_font_load(const char* path, float size) {
    ensure_application();
    auto* font = new SailfishFont;
    QString family;
    if (path && *path) {
        font->id = QFontDatabase::addApplicationFont(QString::fromUtf8(path));
        const QStringList families = QFontDatabase::applicationFontFamilies(font->id);
        if (!families.isEmpty()) family = families.first();
    }
    if (family.isEmpty()) family = QStringLiteral("Sans Serif");
    font->font = QFont(family, -1, -1, false);
    font->font.setPixelSize(pixelSizeOf(size));
    return font;
}

void sailfish_font_resize(SailfishFont* font, float size) {
    if (font) font->font.setPixelSize(pixelSizeOf(size));
}

NuvraImage* sailfish_font_render(SailfishFont* font, const char* text, int r, int g, int b, double a) {
    if (!font || !text) return nullptr;
    const QString string = QString::fromUtf8(text);
    const QFontMetrics metrics(font->font);
    const QRect rect = metrics.boundingRect(string);
    const int width = std::max(1, rect.width() + 2 * kMargin), height = std::max(1, metrics.height() + 2 * kMargin);
    uint8_t* pixels = allocatePixels(width, height);
    if (!pixels) return nullptr;  // a text too wide for one image
    QImage image(width, height, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setFont(font->font);
    const int alpha = a > 0 ? clampByte(std::lround(std::min(a, 255.0))) : 0;
    painter.setPen(QColor(clampByte(r), clampByte(g), clampByte(b), alpha));
    painter.drawText(kMargin - rect.left(), metrics.ascent() + kMargin, string);
    painter.end();
    for (int y = 0; y < height; ++y) std::memcpy(pixels + size_t(y) * size_t(width) * 4, image.constScanLine(y), size_t(width) * 4);
    return new NuvraImage{width, height, pixels, 0, 0, nullptr};
}

void sailfish_font_free(SailfishFont* font) {
    if (!font) return;
    if (font->id >= 0) QFontDatabase::removeApplicationFont(font->id);
    delete font;
}

}  // namespace orvane::font
