// The declarations of the host library table go through the miner's header
// parser, as the script object registers them.
#include <set>

#include "runtime/HostLibraryTable.h"
#include "tests/frontend/CompileFixture.h"

namespace {

class MinerHostLibrary : public CompileFixture {};

// Every row declares a public plain function; rows that share an entry
// (the Extends twins) never share a mangled name.
TEST_F(MinerHostLibrary, EveryRowIsAFunctionOfItsOwnName) {
  std::set<std::string> seen;
  for (HostLibraryFunction const& row : kHostLibraryTable) {
    FunctionDeclaration* f = ExtractMethodDeclaration(row.declaration, nullptr);
    ASSERT_NE(f, nullptr) << row.declaration;
    std::string name = f->GetName().CString();
    std::string base = f->GetBaseName().CString();
    EXPECT_EQ(std::string(row.declaration).find("Function " + base + "("), 0u) << row.declaration;
    EXPECT_EQ(f->GetScope(), ScopedDeclaration::kScopePublic) << row.declaration;
    EXPECT_EQ(f->GetDispatchMethod(), FunctionDeclaration::kDispatchNormal) << row.declaration;
    for (char& c : name) c = (char)toupper((unsigned char)c);
    EXPECT_TRUE(seen.insert(name).second) << "mangled name repeats: " << name;
    delete f;
  }
}

TEST_F(MinerHostLibrary, HandCheckedRows) {
  const struct {
    char const* declaration;
    char const* mangled;
  } kRows[] = {
      {"Function Abs(val As Double) As Double", "Abs%d%d"},
      {"Function Microseconds() As Double", "Microseconds%d%"},
      {"Function InStr(Extends haystack As String, start As Integer=0, needle As String) As Integer",
       "$InStr%i%sis"},
      {"Function RGB(r As Integer, g As Integer, b As Integer) As Color", "RGB%c%iii"},
      {"Function Join(Extends fields() As String, delimiter As String=\" \") As String", "$Join%s%Ass"},
      {"Function Split(source As String, delimiter As String=\" \") As String()", "Split%As%ss"},
  };
  for (auto const& row : kRows) {
    FunctionDeclaration* f = ExtractMethodDeclaration(row.declaration, nullptr);
    ASSERT_NE(f, nullptr) << row.declaration;
    EXPECT_EQ(f->GetName().CompareWithCase(row.mangled), 0) << f->GetName().CString() << " for " << row.declaration;
    delete f;
  }
  FunctionDeclaration* instr = ExtractMethodDeclaration(
      "Function InStr(start As Integer=0, haystack As String, needle As String) As Integer", nullptr);
  ASSERT_NE(instr, nullptr);
  EXPECT_EQ(instr->GetParameter(0)->GetMode(), ParameterDeclaration::kParamOptional);
  EXPECT_EQ(instr->GetParameter(1)->GetMode(), ParameterDeclaration::kParamRequired);
  delete instr;
}

}  // namespace
