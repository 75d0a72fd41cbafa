#include "TransportScript.h"

#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <sstream>

namespace rotavox {

namespace {

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

bool parseInteger(const std::string& s, int64_t min, int64_t max, int64_t* out) {
    if (s.empty()) return false;
    errno = 0;
    char* end = nullptr;
    long long v = strtoll(s.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < min || v > max) return false;
    *out = v;
    return true;
}

}  // namespace

std::string TransportOp::describe() const {
    std::ostringstream o;
    switch (kind) {
        case kForward: o << "forward " << arg; break;
        case kRewind: o << "rewind " << arg; break;
        case kRate: o << "rate " << arg; break;
        case kSeek: o << "seek " << arg << " ms"; break;
        case kPause: o << "pause"; break;
        case kStop: o << "stop"; break;
    }
    return o.str();
}

bool parseTransportScript(const std::string& text, std::vector<TransportOp>* ops,
                          std::string* error) {
    ops->clear();
    std::stringstream items(text);
    std::string item;
    while (std::getline(items, item, ';')) {
        item = trim(item);
        if (item.empty()) continue;

        size_t colon = item.find(':');
        if (colon == std::string::npos) {
            *error = "'" + item + "': expected TIME:OP";
            return false;
        }
        std::string timeText = trim(item.substr(0, colon));
        errno = 0;
        char* end = nullptr;
        double timeS = strtod(timeText.c_str(), &end);
        if (timeText.empty() || errno != 0 || *end != '\0' || !std::isfinite(timeS) ||
            timeS < 0) {
            *error = "'" + item + "': time must be a number of seconds >= 0";
            return false;
        }

        std::istringstream words(item.substr(colon + 1));
        std::string op, argText, extra;
        words >> op >> argText >> extra;
        if (!extra.empty()) {
            *error = "'" + item + "': too many words";
            return false;
        }

        TransportOp t;
        t.timeS = timeS;
        bool takesArg = true;
        int64_t min = -2147483648ll, max = 2147483647ll;
        if (op == "forward") {
            t.kind = TransportOp::kForward;
        } else if (op == "rewind") {
            t.kind = TransportOp::kRewind;
        } else if (op == "rate") {
            t.kind = TransportOp::kRate;
        } else if (op == "seek") {
            t.kind = TransportOp::kSeek;
            min = INT64_MIN / 1000;  // the player multiplies by 1000
            max = INT64_MAX / 1000;
        } else if (op == "pause") {
            t.kind = TransportOp::kPause;
            takesArg = false;
        } else if (op == "stop") {
            t.kind = TransportOp::kStop;
            takesArg = false;
        } else {
            *error = "'" + item + "': unknown operation '" + op +
                     "' (forward, rewind, rate, seek, pause, stop)";
            return false;
        }
        if (takesArg) {
            if (!parseInteger(argText, min, max, &t.arg)) {
                *error = "'" + item + "': " + op + " needs a whole number" +
                         (t.kind == TransportOp::kSeek ? " of milliseconds" : " in permille");
                return false;
            }
        } else if (!argText.empty()) {
            *error = "'" + item + "': " + op + " takes no argument";
            return false;
        }
        ops->push_back(t);
    }
    std::stable_sort(ops->begin(), ops->end(), [](const TransportOp& a, const TransportOp& b) {
        return a.timeS < b.timeS;
    });
    return true;
}

}  // namespace rotavox
