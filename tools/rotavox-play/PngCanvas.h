#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace rotavox {

// A small RGB canvas that draws lines, boxes and 5x7-pixel text, and saves
// itself as PNG: enough for the renderer's picture of position and waveform
// without a plotting stack.
class PngCanvas {
public:
    struct Color {
        uint8_t r, g, b;
    };

    PngCanvas(int width, int height, Color background);

    int width() const { return mWidth; }
    int height() const { return mHeight; }

    void setPixel(int x, int y, Color c);
    void line(int x0, int y0, int x1, int y1, Color c);
    void rect(int x, int y, int w, int h, Color c);
    void fillRect(int x, int y, int w, int h, Color c);
    // Upper-case letters, digits and . - : / ( ) % = and space; lower case is
    // drawn as upper case, anything else as a blank.  |scale| multiplies the
    // 5x7 glyphs.
    void text(int x, int y, const std::string& s, Color c, int scale = 1);
    static int textWidth(const std::string& s, int scale = 1) { return (int)s.size() * 6 * scale; }

    // Writes the canvas; false with |error| set when the file cannot be written.
    bool save(const std::string& path, std::string* error) const;

private:
    int mWidth;
    int mHeight;
    std::vector<uint8_t> mPixels;  // RGB rows
};

}  // namespace rotavox
