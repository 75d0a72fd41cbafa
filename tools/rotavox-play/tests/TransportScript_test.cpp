#include <gtest/gtest.h>

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
    ASSERT_EQ(6u, ops.size());
    EXPECT_EQ(TransportOp::kForward, ops[0].kind);
    EXPECT_EQ(1000, ops[0].arg);
    EXPECT_EQ(TransportOp::kRate, ops[1].kind);
    EXPECT_DOUBLE_EQ(1.25, ops[1].timeS);
    EXPECT_EQ(-250, ops[1].arg);
    // Equal times keep the order they were written in.
    EXPECT_EQ(TransportOp::kRewind, ops[2].kind);
    EXPECT_EQ(TransportOp::kSeek, ops[3].kind);
    EXPECT_EQ(1500, ops[3].arg);
    EXPECT_EQ(TransportOp::kPause, ops[4].kind);
    EXPECT_EQ(TransportOp::kStop, ops[5].kind);
    EXPECT_DOUBLE_EQ(3.5, ops[5].timeS);
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
