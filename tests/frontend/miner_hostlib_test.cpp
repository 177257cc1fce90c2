// Every declaration of the host library table goes through the miner's
// header parser, as the script object registers them. The expected shape of
// each row is read off the text by a separate, plain-string reading, so a
// fault in the miner's state machine can't hide in its own expectations.
#include "miner_fixture.h"

#include <cctype>
#include <set>

#include "runtime/HostLibraryTable.h"

namespace {

struct ExpectedParam {
  std::string code;   // the type code that the name carries
  bool extends;
};

struct ExpectedHeader {
  std::string base;
  std::vector<ExpectedParam> params;
  std::string result;  // type code; empty for none
  std::string mangled;
};

std::string Trim(std::string s) {
  while (!s.empty() && s.front() == ' ') s.erase(0, 1);
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

std::string Lower(std::string s) {
  for (char& c : s) c = (char)std::tolower((unsigned char)c);
  return s;
}

std::string CodeOf(std::string type) {
  type = Trim(type);
  std::string prefix;
  if (type.size() > 2 && type.substr(type.size() - 2) == "()") {
    prefix = "A";
    type = type.substr(0, type.size() - 2);
  }
  std::string t = Lower(type);
  if (t == "double") return prefix + "d";
  if (t == "integer") return prefix + "i";
  if (t == "string") return prefix + "s";
  if (t == "color") return prefix + "c";
  if (t == "boolean") return prefix + "b";
  ADD_FAILURE() << "no code for type " << type;
  return "?";
}

// "Function Name(p As T, Extends q() As T=0) As R". A parameter that ends
// in a bare "=" takes the closing parenthesis as its default, so the list
// reads on: the result's `As` retypes that parameter, and there is no
// result. That is how the miner reads Join and Split.
ExpectedHeader Expect(std::string text) {
  ExpectedHeader h;
  size_t open = text.find('(');
  size_t close = text.find(')', open);
  // An empty "()" inside the list belongs to an array parameter.
  while (close != std::string::npos && close > open + 1 && text[close - 1] == '(') close = text.find(')', close + 1);
  h.base = Trim(text.substr(std::string("Function ").size(), open - std::string("Function ").size()));
  std::string list = text.substr(open + 1, close - open - 1);
  std::string tail = Trim(text.substr(close + 1));
  std::vector<std::string> parts;
  size_t start = 0;
  while (!list.empty()) {
    size_t comma = list.find(',', start);
    parts.push_back(Trim(list.substr(start, comma - start)));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  bool bareDefault = false;
  for (std::string const& part : parts) {
    ExpectedParam p;
    p.extends = part.rfind("Extends ", 0) == 0;
    std::string type = part.substr(part.find(" As ") + 4);
    size_t eq = type.find('=');
    if (eq != std::string::npos) {
      bareDefault = Trim(type.substr(eq + 1)).empty();
      type = type.substr(0, eq);
    }
    std::string name = part.substr(0, part.find(" As "));
    bool array = name.size() > 2 && name.substr(name.size() - 2) == "()";
    p.code = (array ? "A" : "") + CodeOf(type);
    h.params.push_back(p);
  }
  std::string resultType = tail.rfind("As ", 0) == 0 ? tail.substr(3) : std::string();
  if (bareDefault) {
    // Retyped by the result's plain type; an array mark behind it only
    // counts dimensions that no one reads any more.
    std::string plain = resultType.substr(0, resultType.find('('));
    h.params.back().code = CodeOf(plain);
    resultType.clear();
  }
  h.result = resultType.empty() ? "" : CodeOf(resultType);
  std::string designators;
  for (ExpectedParam const& p : h.params)
    if (p.extends) designators = "$" + designators;
  h.mangled = designators + h.base + "%" + h.result + "%";
  for (ExpectedParam const& p : h.params) h.mangled += p.code;
  return h;
}

class MinerHostLibraryTest : public MinerFixture {};

TEST_F(MinerHostLibraryTest, EveryRowParsesToItsNameParametersAndResult) {
  std::set<std::string> seen;
  for (HostLibraryFunction const& row : kHostLibraryTable) {
    SCOPED_TRACE(row.declaration);
    ExpectedHeader expected = Expect(row.declaration);
    FunctionDeclaration* f = ExtractMethodDeclaration(row.declaration, nullptr);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->GetBaseName(), string(expected.base.c_str()));
    EXPECT_EQ(f->GetName().CompareWithCase(expected.mangled.c_str()), 0)
        << "mined " << f->GetName().CString() << ", expected " << expected.mangled;
    EXPECT_EQ(f->GetScope(), ScopedDeclaration::kScopePublic);
    EXPECT_EQ(f->GetDispatchMethod(), FunctionDeclaration::kDispatchNormal);
    EXPECT_EQ(f->GetType().Null(), expected.result.empty());
    ASSERT_EQ(f->CountParameters(), expected.params.size());
    for (unsigned int i = 0; i < f->CountParameters(); ++i) {
      ParameterDeclaration* p = f->GetParameter(i);
      EXPECT_EQ(p->GetDesignator(), expected.params[i].extends ? ParameterDeclaration::kDesignatorExtends : 0) << i;
      EXPECT_EQ(p->GetType().GetMainType() == kTypeArray, expected.params[i].code[0] == 'A') << i;
      EXPECT_FALSE(p->GetName() == "") << i;
    }
    // Twins share an entry but never a mangled name.
    EXPECT_TRUE(seen.insert(f->GetName().CString()).second) << "mangled name repeats";
    delete f;
  }
  EXPECT_EQ(seen.size(), (size_t)kHostLibraryFunctionCount);
}

TEST_F(MinerHostLibraryTest, HandCheckedRows) {
  struct Row {
    char const* declaration;
    char const* mangled;
  } const rows[] = {
      {"Function Abs(val As Double) As Double", "Abs%d%d"},
      {"Function Microseconds() As Double", "Microseconds%d%"},
      {"Function InStr(Extends haystack As String, start As Integer=0, needle As String) As Integer",
       "$InStr%i%sis"},
      {"Function RGB(r As Integer, g As Integer, b As Integer) As Color", "RGB%c%iii"},
      {"Function Join(Extends fields() As String, delimiter As String=) As String", "$Join%%Ass"},
      {"Function Split(source As String, delimiter As String=) As String()", "Split%%ss"},
  };
  for (Row const& row : rows) {
    FunctionDeclaration* f = ExtractMethodDeclaration(row.declaration, nullptr);
    ASSERT_NE(f, nullptr) << row.declaration;
    EXPECT_EQ(f->GetName().CompareWithCase(row.mangled), 0) << f->GetName().CString() << " for " << row.declaration;
    delete f;
  }
}

TEST_F(MinerHostLibraryTest, DefaultsOfTheTableRows) {
  FunctionDeclaration* instr = ExtractMethodDeclaration(
      "Function InStr(start As Integer=0, haystack As String, needle As String) As Integer", nullptr);
  ASSERT_NE(instr, nullptr);
  EXPECT_EQ(instr->GetParameter(0)->GetMode(), ParameterDeclaration::kParamOptional);
  EXPECT_EQ(instr->GetParameter(0)->GetDefaultValue().sint32, 0);
  EXPECT_EQ(instr->GetParameter(1)->GetMode(), ParameterDeclaration::kParamRequired);
  delete instr;

  // "=" with no value: the delimiter stays required, and no result.
  FunctionDeclaration* join =
      ExtractMethodDeclaration("Function Join(fields() As String, delimiter As String=) As String", nullptr);
  ASSERT_NE(join, nullptr);
  ASSERT_EQ(join->CountParameters(), 2u);
  EXPECT_EQ(join->GetParameter(0)->GetType(), IRDataType(kTypeString).AsArray(1));
  EXPECT_EQ(join->GetParameter(1)->GetMode(), ParameterDeclaration::kParamRequired);
  EXPECT_EQ(join->GetParameter(1)->GetType(), IRDataType(kTypeString));
  EXPECT_TRUE(join->GetType().Null());
  delete join;
}

}  // namespace
