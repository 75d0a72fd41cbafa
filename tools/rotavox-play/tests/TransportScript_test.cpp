#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "TransportScript.h"

namespace rotavox {
namespace {

TEST(TransportScriptTest, ParsesEveryOperationInTimeOrder) {
    std::vector<TransportOp> ops;
    std::string error;
    ASSERT_TRUE(parseTransportScript(
            " 3.5:stop; 0:forward 1000;2:rewind 1000 ; 1.25 : rate -250; 2:seek 1500; 2.5:pause;",
            &ops, &error))
            << error;
    using Op = std::tuple<double, TransportOp::Kind, int64_t>;
    std::vector<Op> got;
    for (const TransportOp& op : ops) got.emplace_back(op.timeS, op.kind, op.arg);
    const std::vector<Op> want = {
            {0, TransportOp::kForward, 1000}, {1.25, TransportOp::kRate, -250},
            // Equal times keep the order they were written in.
            {2, TransportOp::kRewind, 1000},  {2, TransportOp::kSeek, 1500},
            {2.5, TransportOp::kPause, 0},    {3.5, TransportOp::kStop, 0},
    };
    EXPECT_EQ(want, got);
}

TEST(TransportScriptTest, AnEmptyScriptHasNoOperations) {
    std::vector<TransportOp> ops;
    std::string error;
    EXPECT_TRUE(parseTransportScript(" ; ;", &ops, &error));
    EXPECT_TRUE(ops.empty());
}

TEST(TransportScriptTest, MalformedScriptsNameTheirFault) {
    struct Case {
        const char* script;
        const char* mentions;
    } cases[] = {
            {"forward 1000", "TIME:OP"},
            {"x:forward 1000", "time"},
            {"-1:forward 1000", "time"},
            {"1:jump 3", "unknown operation 'jump'"},
            {"1:forward", "whole number"},
            {"1:forward fast", "whole number"},
            {"1:forward 1.5", "whole number"},
            {"1:forward 99999999999", "whole number"},
            {"1:seek", "milliseconds"},
            {"1:pause now", "takes no argument"},
            {"1:rewind 10 20", "too many words"},
            {"inf:stop", "time"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        std::vector<TransportOp> ops;
        std::string error;
        EXPECT_FALSE(parseTransportScript(c.script, &ops, &error));
        EXPECT_NE(std::string::npos, error.find(c.mentions)) << error;
    }
}

}  // namespace
}  // namespace rotavox
