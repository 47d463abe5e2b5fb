#include "policy/DirectiveLineReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "runtime/CorErrors.h"
#include "support/RealAssemblies.h"

// A file of a megabyte or more is read on a thread of its own, a smaller one
// in turn: both hand over the same lines in the same order, overlong lines in
// pieces, comments and blank lines left out, and stop at the first line that
// fails to apply.
TEST(DirectiveLineReader, LargeAndSmallFilesHandOverTheSameLinesAndStopAtAFailure) {
    for (const size_t flags : {size_t{40}, size_t{60000}}) {
        std::string text;
        std::vector<std::string> expected;
        for (size_t i = 0; i < flags; ++i) {
            text += "SetFlag: F" + std::to_string(i) + " extra\n";
            expected.push_back("SetFlag|F" + std::to_string(i) + "|2");
            if (i % 7 == 0) text += "# a comment\n\n";
            if (i == flags / 3) {
                text += "SetFlag: " + std::string(3000, 'x') + "\n";
                expected.push_back("SetFlag|" + std::string(2047 - 9, 'x') + "|1");
                expected.push_back(std::string(3000 - (2047 - 9), 'x') + "||0");
            }
        }
        ASSERT_EQ(text.size() >= (size_t{1} << 20), flags > 1000);
        for (const size_t failAt : {expected.size() + 1, expected.size() / 2}) {
            FILE* file = tmpfile();
            ASSERT_EQ(fwrite(text.data(), 1, text.size(), file), text.size());
            rewind(file);
            std::vector<std::string> seen;
            const HRESULT status = DirectiveLineReader::read(file, [&](const DirectiveLine& line) {
                const char16_t* first = line.arguments[0] != nullptr ? line.arguments[0] : u"";
                seen.push_back(RealAssemblies::narrow(line.keyword) + "|" + RealAssemblies::narrow(first) + "|" +
                               std::to_string(line.count));
                return seen.size() == failAt ? E_FAIL : S_OK;
            });
            fclose(file);
            const size_t reached = std::min(failAt, expected.size());
            EXPECT_EQ(status, reached == failAt ? E_FAIL : S_OK) << flags;
            EXPECT_TRUE(seen == std::vector<std::string>(expected.begin(), expected.begin() + reached))
                << flags << " lines, failing at " << failAt << ", " << seen.size() << " seen";
        }
    }
}
