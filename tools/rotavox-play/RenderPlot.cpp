#include "RenderPlot.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

#include "PngCanvas.h"

namespace rotavox {

namespace {

// The left (or only) channel of a 16-bit PCM WAV.
bool readWavLeft(const std::string& path, std::vector<int16_t>* left, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 12 || memcmp(bytes.data(), "RIFF", 4) || memcmp(bytes.data() + 8, "WAVE", 4)) {
        *error = path + " is not a WAV file";
        return false;
    }
    auto u16 = [&](size_t at) { return (uint32_t)bytes[at] | (uint32_t)bytes[at + 1] << 8; };
    auto u32 = [&](size_t at) { return u16(at) | u16(at + 2) << 16; };
    size_t pos = 12;
    int channels = 0, bits = 0;
    while (pos + 8 <= bytes.size()) {
        uint32_t size = u32(pos + 4);
        if (!memcmp(&bytes[pos], "fmt ", 4) && pos + 24 <= bytes.size()) {
            channels = (int)u16(pos + 10);
            bits = (int)u16(pos + 22);
        } else if (!memcmp(&bytes[pos], "data", 4)) {
            if (channels < 1 || bits != 16) {
                *error = path + ": only 16-bit PCM is drawn";
                return false;
            }
            size_t end = std::min(bytes.size(), pos + 8 + (size_t)size);
            for (size_t at = pos + 8; at + 2 * channels <= end; at += 2 * channels) {
                left->push_back((int16_t)u16(at));
            }
            return true;
        }
        pos += 8 + size + (size & 1);
    }
    *error = path + " has no data chunk";
    return false;
}

}  // namespace

bool writeRenderPlot(const RenderResult& result, const std::string& wavPath,
                     const std::string& pngPath, std::string* error) {
    const PngCanvas::Color kWhite{255, 255, 255}, kBlack{0, 0, 0}, kGrey{190, 190, 190},
            kBlue{20, 90, 200}, kGreen{30, 140, 60}, kRed{200, 40, 40};
    const int W = 1400, H = 760, left = 70, right = 30, top = 40, gap = 70;
    const int plotW = W - left - right, plotH = (H - top - gap - 40) / 2;
    PngCanvas canvas(W, H, kWhite);

    const double rate = result.sampleRate ? result.sampleRate : 1;
    int64_t lastFrame = 1;
    int64_t maxPosUs = 1;
    for (const PositionSample& s : result.positions) {
        lastFrame = std::max(lastFrame, s.outputFrames);
        maxPosUs = std::max(maxPosUs, s.positionUs);
    }
    lastFrame = std::max(lastFrame, result.framesWritten);
    auto xOf = [&](int64_t frame) { return left + (int)((double)frame * (plotW - 1) / lastFrame); };

    // Position over output time.
    canvas.text(left, top - 25, "PLAY POSITION (S) OVER OUTPUT TIME (S)", kBlack, 2);
    canvas.rect(left, top, plotW, plotH, kBlack);
    for (const AppliedOp& op : result.applied) {
        int x = xOf(op.outputFrames);
        canvas.line(x, top + 1, x, top + plotH - 2, kGrey);
        std::string label = op.label.substr(op.label.find(' ') + 1);
        canvas.text(std::min(x + 3, W - right - PngCanvas::textWidth(label)), top + 4, label, kRed);
    }
    int px = -1, py = -1;
    for (const PositionSample& s : result.positions) {
        int x = xOf(s.outputFrames);
        int y = top + plotH - 1 - (int)((double)std::max<int64_t>(0, s.positionUs) * (plotH - 2) / maxPosUs);
        if (px >= 0) canvas.line(px, py, x, y, kBlue);
        px = x;
        py = y;
    }
    char buf[64];
    snprintf(buf, sizeof(buf), "%.2f", maxPosUs / 1e6);
    canvas.text(left - PngCanvas::textWidth(buf) - 6, top, buf, kBlack);
    canvas.text(left - 12, top + plotH - 7, "0", kBlack);
    snprintf(buf, sizeof(buf), "%.2f", lastFrame / rate);
    canvas.text(left + plotW - PngCanvas::textWidth(buf), top + plotH + 6, buf, kBlack);

    // Waveform of the rendered output.
    const int wtop = top + plotH + gap;
    canvas.rect(left, wtop, plotW, plotH, kBlack);
    std::vector<int16_t> pcm;
    std::string wavError;
    if (!wavPath.empty() && readWavLeft(wavPath, &pcm, &wavError) && !pcm.empty()) {
        canvas.text(left, wtop - 25, "OUTPUT WAVEFORM, LEFT CHANNEL", kBlack, 2);
        const int mid = wtop + plotH / 2;
        for (int x = 0; x < plotW - 2; ++x) {
            size_t from = (size_t)((double)x * pcm.size() / (plotW - 2));
            size_t to = std::max(from + 1, (size_t)((double)(x + 1) * pcm.size() / (plotW - 2)));
            int lo = 0, hi = 0;
            for (size_t i = from; i < to && i < pcm.size(); ++i) {
                lo = std::min(lo, (int)pcm[i]);
                hi = std::max(hi, (int)pcm[i]);
            }
            canvas.line(left + 1 + x, mid - hi * (plotH / 2 - 2) / 32768, left + 1 + x,
                        mid - lo * (plotH / 2 - 2) / 32768, kGreen);
        }
    } else {
        canvas.text(left, wtop - 25, "NO WAVEFORM (RENDER WITH --OUT TO SEE ONE)", kBlack, 2);
    }
    return canvas.save(pngPath, error);
}

}  // namespace rotavox
