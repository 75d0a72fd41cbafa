#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "Renderer.h"

namespace rotavox {

// The run as the plotting script reads it (see rotavox-plot).
nlohmann::json plotData(const RenderResult& result, const std::string& title,
                        const std::string& wavPath);

// Draws position, speed and (with a WAV) the waveform over output time into
// pngPath with the rotavox-plot script installed beside the tool.
bool writeRenderPlot(const nlohmann::json& data, const std::string& pngPath, std::string* error);

}  // namespace rotavox
