// Whole programs of realistic size, kept as scripts under corpus/: every one
// parses without a syntax error.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/frontend/grammar_ParseFixture.h"

namespace {

std::filesystem::path CorpusDirectory() { return std::filesystem::path(__FILE__).parent_path() / "corpus"; }

std::vector<std::filesystem::path> CorpusScripts() {
  std::vector<std::filesystem::path> scripts;
  for (auto const& entry : std::filesystem::directory_iterator(CorpusDirectory()))
    if (entry.path().extension() == ".kvs") scripts.push_back(entry.path());
  std::sort(scripts.begin(), scripts.end());
  return scripts;
}

std::string ReadFile(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(GrammarCorpus, EveryScriptParses) {
  std::vector<std::filesystem::path> scripts = CorpusScripts();
  EXPECT_GE(scripts.size(), 30u);
  for (auto const& path : scripts) {
    std::string text = ReadFile(path);
    ASSERT_FALSE(text.empty()) << path;
    ParseOutcome outcome = ParseText(text.c_str());
    EXPECT_EQ(outcome.result, 0) << path.filename() << ": " << outcome.Describe();
    EXPECT_FALSE(outcome.Has(SyntaxError)) << path.filename() << ": " << outcome.Describe();
  }
}

// A script cut short anywhere inside a construct is rejected, never
// accepted and never a crash: the corpus seen through its prefixes.
TEST(GrammarCorpus, TruncatedScriptsAreRejectedCleanly) {
  for (auto const& path : CorpusScripts()) {
    std::string text = ReadFile(path);
    std::string::size_type cut = text.find("\nEnd ");
    if (cut == std::string::npos) continue;
    std::string head = text.substr(0, cut + 1);
    ParseOutcome outcome = ParseText(head.c_str());
    EXPECT_EQ(outcome.result, 1) << path.filename() << ": " << outcome.Describe();
    EXPECT_TRUE(outcome.Has(SyntaxError)) << path.filename() << ": " << outcome.Describe();
  }
}

}  // namespace
