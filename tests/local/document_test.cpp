// Runs every example of the language's document.
#include "client_fixture.h"

#include <fstream>

namespace local_tests {

TEST_F(LocalClient, DocumentedExamplesHoldTrue) {
    std::ifstream document(LANGUAGE_DOCUMENT);
    ASSERT_TRUE(document) << LANGUAGE_DOCUMENT;
    std::string source;
    bool inExample = false;
    int examples = 0;
    int lineNumber = 0;
    for (std::string line; std::getline(document, line);) {
        ++lineNumber;
        if (line.starts_with("```")) {
            inExample = line == "```kci";
            EXPECT_EQ(source, "") << "no result is shown before line " << lineNumber;
            source.clear();
        } else if (inExample && line.starts_with("=> ")) {
            EXPECT_EQ(print(source), line.substr(3)) << "line " << lineNumber << ": " << source;
            source.clear();
            ++examples;
        } else if (inExample) {
            source += (source.empty() ? "" : "\n") + line;
        }
    }
    EXPECT_GT(examples, 60);
}

} // namespace local_tests
