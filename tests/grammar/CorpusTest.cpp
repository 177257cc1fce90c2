// Whole programs of realistic size, kept as scripts under corpus/ (they
// seed the fuzzers too): every one parses without a syntax error, and every
// one cut short inside a construct is rejected, never accepted nor a crash.

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/grammar/ParseFixture.h"

namespace {

TEST(GrammarCorpus, EveryScriptParsesAndItsPrefixIsRejected) {
  std::set<std::filesystem::path> scripts;
  for (auto const& entry : std::filesystem::directory_iterator(std::filesystem::path(__FILE__).parent_path() / "corpus"))
    if (entry.path().extension() == ".kvs") scripts.insert(entry.path());
  EXPECT_GE(scripts.size(), 30u);
  for (auto const& path : scripts) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    std::string whole = text.str();
    ASSERT_FALSE(whole.empty()) << path;
    ParseOutcome outcome = ParseText(whole.c_str());
    EXPECT_EQ(outcome.result, 0) << path.filename() << ": " << outcome.Describe();
    EXPECT_FALSE(outcome.Has(SyntaxError)) << path.filename() << ": " << outcome.Describe();

    std::string::size_type cut = whole.find("\nEnd ");
    if (cut == std::string::npos) continue;
    ParseOutcome head = ParseText(whole.substr(0, cut + 1).c_str());
    EXPECT_EQ(head.result, 1) << path.filename() << " cut short: " << head.Describe();
    EXPECT_TRUE(head.Has(SyntaxError)) << path.filename() << " cut short: " << head.Describe();
  }
}

}  // namespace
