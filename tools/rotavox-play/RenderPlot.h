#pragma once

#include <string>

#include "Renderer.h"

namespace rotavox {

// Draws the play position over output time (with the applied operations
// marked) and, when |wavPath| names the rendered WAV, its waveform.
bool writeRenderPlot(const RenderResult& result, const std::string& wavPath,
                     const std::string& pngPath, std::string* error);

}  // namespace rotavox
