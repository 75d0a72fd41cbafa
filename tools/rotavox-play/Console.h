#pragma once

#include <stdarg.h>

#include <string>

namespace rotavox {

// The tool's terminal: its own messages, the engine's and the host's log
// lines, and the live progress line share stderr, and a message never lands
// in the middle of the progress line.
namespace console {

enum Verbosity { kQuiet, kNormal, kVerbose };

// Routes liblog through this console and sets which lines pass: kNormal
// shows warnings and worse, kVerbose everything, kQuiet errors only.
// ANDROID_LOG_TAGS ("*:w RotavoxSource:v", priorities v d i w e f s)
// overrides the level per tag, as on Android's host tools.  Returns false
// with a message when ANDROID_LOG_TAGS cannot be read.
bool setUp(Verbosity verbosity, bool progress, std::string* error);

Verbosity verbosity();

// A line of the tool's own (not shown under -q unless it is an error).
void info(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void error(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// Redraws the progress line (a no-op when progress is off).
void progress(const std::string& line);
// Ends the progress line, leaving its last state on screen.
void endProgress();

}  // namespace console

// "NO_INIT (-19)": a status_t as people read it.
std::string statusName(int status);

}  // namespace rotavox
