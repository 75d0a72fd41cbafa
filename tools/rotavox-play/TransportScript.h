#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace rotavox {

// One operation of a transport script, due at a time in seconds of output
// stream time (rendered audio), so that a freewheeling render is repeatable.
struct TransportOp {
    enum Kind { kForward, kRewind, kRate, kSeek, kPause, kStop };

    double timeS = 0;
    Kind kind = kForward;
    int64_t arg = 0;  // permille for the speeds, milliseconds for seek

    // The operation as a script writes it, without its time: "seek 500 ms".
    std::string describe() const;
};

// Parses "T:op arg; T:op arg; ..." with ops forward N, rewind N, rate N,
// seek MS, pause and stop.  Operations are returned in time order (stable for
// equal times).  On a malformed script returns false with a message that
// names the offending part.
bool parseTransportScript(const std::string& text, std::vector<TransportOp>* ops,
                          std::string* error);

}  // namespace rotavox
