#include "PngCanvas.h"

#include <png.h>
#include <stdio.h>
#include <string.h>

#include <cerrno>
#include <cstdlib>

namespace rotavox {

namespace {

struct Glyph {
    char c;
    uint8_t rows[7];  // five bits a row, most significant on the left
};

const Glyph kGlyphs[] = {
        {'0', {0x0e, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0e}},
        {'1', {0x04, 0x0c, 0x04, 0x04, 0x04, 0x04, 0x0e}},
        {'2', {0x0e, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1f}},
        {'3', {0x1f, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0e}},
        {'4', {0x02, 0x06, 0x0a, 0x12, 0x1f, 0x02, 0x02}},
        {'5', {0x1f, 0x10, 0x1e, 0x01, 0x01, 0x11, 0x0e}},
        {'6', {0x06, 0x08, 0x10, 0x1e, 0x11, 0x11, 0x0e}},
        {'7', {0x1f, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
        {'8', {0x0e, 0x11, 0x11, 0x0e, 0x11, 0x11, 0x0e}},
        {'9', {0x0e, 0x11, 0x11, 0x0f, 0x01, 0x02, 0x0c}},
        {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0c, 0x0c}},
        {'-', {0x00, 0x00, 0x00, 0x1f, 0x00, 0x00, 0x00}},
        {':', {0x00, 0x0c, 0x0c, 0x00, 0x0c, 0x0c, 0x00}},
        {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}},
        {'(', {0x02, 0x04, 0x08, 0x08, 0x08, 0x04, 0x02}},
        {')', {0x08, 0x04, 0x02, 0x02, 0x02, 0x04, 0x08}},
        {'%', {0x18, 0x19, 0x02, 0x04, 0x08, 0x13, 0x03}},
        {'=', {0x00, 0x00, 0x1f, 0x00, 0x1f, 0x00, 0x00}},
        {'A', {0x0e, 0x11, 0x11, 0x1f, 0x11, 0x11, 0x11}},
        {'B', {0x1e, 0x11, 0x11, 0x1e, 0x11, 0x11, 0x1e}},
        {'C', {0x0e, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0e}},
        {'D', {0x1c, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1c}},
        {'E', {0x1f, 0x10, 0x10, 0x1e, 0x10, 0x10, 0x1f}},
        {'F', {0x1f, 0x10, 0x10, 0x1e, 0x10, 0x10, 0x10}},
        {'G', {0x0e, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0f}},
        {'H', {0x11, 0x11, 0x11, 0x1f, 0x11, 0x11, 0x11}},
        {'I', {0x0e, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0e}},
        {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0c}},
        {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}},
        {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1f}},
        {'M', {0x11, 0x1b, 0x15, 0x15, 0x11, 0x11, 0x11}},
        {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
        {'O', {0x0e, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0e}},
        {'P', {0x1e, 0x11, 0x11, 0x1e, 0x10, 0x10, 0x10}},
        {'Q', {0x0e, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0d}},
        {'R', {0x1e, 0x11, 0x11, 0x1e, 0x14, 0x12, 0x11}},
        {'S', {0x0f, 0x10, 0x10, 0x0e, 0x01, 0x01, 0x1e}},
        {'T', {0x1f, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
        {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0e}},
        {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0a, 0x04}},
        {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0a}},
        {'X', {0x11, 0x11, 0x0a, 0x04, 0x0a, 0x11, 0x11}},
        {'Y', {0x11, 0x11, 0x11, 0x0a, 0x04, 0x04, 0x04}},
        {'Z', {0x1f, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1f}},
};

const Glyph* findGlyph(char c) {
    if (c >= 'a' && c <= 'z') c = (char)(c - 'a' + 'A');
    for (const Glyph& g : kGlyphs) {
        if (g.c == c) return &g;
    }
    return nullptr;
}

}  // namespace

PngCanvas::PngCanvas(int width, int height, Color background)
    : mWidth(width), mHeight(height), mPixels((size_t)width * height * 3) {
    fillRect(0, 0, width, height, background);
}

void PngCanvas::setPixel(int x, int y, Color c) {
    if (x < 0 || y < 0 || x >= mWidth || y >= mHeight) return;
    uint8_t* p = &mPixels[((size_t)y * mWidth + x) * 3];
    p[0] = c.r;
    p[1] = c.g;
    p[2] = c.b;
}

void PngCanvas::line(int x0, int y0, int x1, int y1, Color c) {
    int dx = abs(x1 - x0), sx = x0 < x1 ? 1 : -1;
    int dy = -abs(y1 - y0), sy = y0 < y1 ? 1 : -1;
    int err = dx + dy;
    for (;;) {
        setPixel(x0, y0, c);
        if (x0 == x1 && y0 == y1) break;
        int e2 = 2 * err;
        if (e2 >= dy) {
            err += dy;
            x0 += sx;
        }
        if (e2 <= dx) {
            err += dx;
            y0 += sy;
        }
    }
}

void PngCanvas::rect(int x, int y, int w, int h, Color c) {
    line(x, y, x + w - 1, y, c);
    line(x, y + h - 1, x + w - 1, y + h - 1, c);
    line(x, y, x, y + h - 1, c);
    line(x + w - 1, y, x + w - 1, y + h - 1, c);
}

void PngCanvas::fillRect(int x, int y, int w, int h, Color c) {
    for (int j = y; j < y + h; ++j) {
        for (int i = x; i < x + w; ++i) setPixel(i, j, c);
    }
}

void PngCanvas::text(int x, int y, const std::string& s, Color c, int scale) {
    for (size_t k = 0; k < s.size(); ++k) {
        const Glyph* g = findGlyph(s[k]);
        if (g == nullptr) continue;
        int gx = x + (int)k * 6 * scale;
        for (int row = 0; row < 7; ++row) {
            for (int col = 0; col < 5; ++col) {
                if (g->rows[row] & (0x10 >> col)) {
                    fillRect(gx + col * scale, y + row * scale, scale, scale, c);
                }
            }
        }
    }
}

bool PngCanvas::save(const std::string& path, std::string* error) const {
    FILE* f = fopen(path.c_str(), "wb");
    if (f == nullptr) {
        *error = "cannot write " + path + ": " + strerror(errno);
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (png == nullptr || info == nullptr) {
        png_destroy_write_struct(&png, &info);
        fclose(f);
        *error = "libpng could not start";
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        fclose(f);
        *error = "libpng failed while writing " + path;
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, mWidth, mHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < mHeight; ++y) {
        png_write_row(png, const_cast<png_bytep>(&mPixels[(size_t)y * mWidth * 3]));
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (fclose(f) != 0) {
        *error = "cannot finish " + path + ": " + strerror(errno);
        return false;
    }
    return true;
}

}  // namespace rotavox
