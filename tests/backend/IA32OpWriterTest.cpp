// Every instruction form of the writer, read back by the system disassembler.
// Operands sit on the encoding's boundaries: displacements 0, 127, 128, -128
// and -129 (where disp8 stops), esp as a base (which needs a SIB byte), ebp
// as a base (mod 0 rm 5 means an absolute address instead), and immediates
// on both sides of the 8-bit range.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "backend/IA32OpWriter.h"

namespace {

using ByteString = std::vector<uint8_t>;

// Appends to a byte vector, least significant byte first, as the processor reads.
class ByteWriter : public IA32OpWriter {
public:
  void ia32_Write8(char byte) override { bytes.push_back((uint8_t)byte); }
  void ia32_Write16(int value) override {
    ia32_Write8((char)value);
    ia32_Write8((char)(value >> 8));
  }
  void ia32_Write32(int value) override {
    ia32_Write16(value);
    ia32_Write16(value >> 16);
  }

  ByteString bytes;
};

constexpr char kObjdump[] = "/usr/bin/objdump";

std::string HexBytes(ByteString const& bytes) {
  std::string out;
  char piece[4];
  for (uint8_t b : bytes) {
    snprintf(piece, sizeof piece, "%s%02X", out.empty() ? "" : " ", b);
    out += piece;
  }
  return out;
}

// Runs of blanks become one space, with none at the ends, so that a table
// needn't copy objdump's column padding.
std::string CollapseBlanks(std::string const& text) {
  std::string out;
  for (char c : text) {
    bool blank = c == ' ' || c == '\t';
    if (blank && (out.empty() || out.back() == ' ')) continue;
    out += blank ? ' ' : c;
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

// The text column of an instruction line "   0:\t8b 45 08 \tmov ...", or ""
// for a line that only continues the bytes of the one before.
bool InstructionText(std::string const& line, std::string& text) {
  size_t colon = line.find(":\t");
  if (colon == std::string::npos) return false;
  for (size_t i = 0; i < colon; ++i) {
    char c = line[i];
    bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
    if (c != ' ' && !hex) return false;
  }
  size_t tab = line.find('\t', colon + 2);
  text = tab == std::string::npos ? "" : CollapseBlanks(line.substr(tab + 1));
  return true;
}

// Disassembles each byte string on its own, as a file of its own at offset 0,
// all with one objdump run. Each result is the instruction texts found,
// joined by " ; ", so a string that is not exactly one instruction shows as
// more than one. `intel` asks for Intel syntax. An empty string gives "";
// a failure to run objdump gives an empty vector.
std::vector<std::string> Disassemble(std::vector<ByteString> const& pieces, bool intel = false) {
  char dir[] = "/tmp/kv_ia32_XXXXXX";
  if (!mkdtemp(dir)) return {};
  std::vector<std::string> paths;
  std::string command = std::string(kObjdump) + " -D -b binary -m i386" + (intel ? " -M intel" : "");
  for (size_t i = 0; i < pieces.size(); ++i) {
    paths.push_back(std::string(dir) + "/case" + std::to_string(i));
    if (pieces[i].empty()) continue;
    FILE* f = fopen(paths[i].c_str(), "wb");
    if (!f) return {};
    fwrite(pieces[i].data(), 1, pieces[i].size(), f);
    fclose(f);
    command += " " + paths[i];
  }
  command += " 2>&1";

  std::vector<std::string> texts(pieces.size());
  FILE* out = popen(command.c_str(), "r");
  bool ran = out != nullptr;
  long current = -1;
  char line[512];
  while (out && fgets(line, sizeof line, out)) {
    std::string s(line);
    if (!s.empty() && s.back() == '\n') s.pop_back();
    std::string text;
    if (s.rfind(dir, 0) == 0 && s.find("file format") != std::string::npos) {
      current = strtol(s.c_str() + strlen(dir) + strlen("/case"), nullptr, 10);
    } else if (current >= 0 && InstructionText(s, text) && !text.empty()) {
      std::string& joined = texts[(size_t)current];
      joined += (joined.empty() ? "" : " ; ") + text;
    }
  }
  if (out && pclose(out) != 0) ran = false;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (!pieces[i].empty()) unlink(paths[i].c_str());
  }
  rmdir(dir);
  if (!ran) return {};
  return texts;
}

struct EncodingCase {
  char const* text;
  char const* call;
  void (*write)(IA32OpWriter&);
};

#define CASE(text, call) {text, #call, [](IA32OpWriter& w) { w.call; }}

// Each case on a fresh writer, so every instruction starts at offset 0 and
// relative targets read the same however the table is ordered.
template <size_t N>
void ExpectDisassembly(EncodingCase const (&cases)[N], bool intel = false) {
  ASSERT_EQ(access(kObjdump, X_OK), 0) << kObjdump << " is needed to check encodings";
  std::vector<ByteString> pieces;
  for (EncodingCase const& c : cases) {
    ByteWriter w;
    c.write(w);
    pieces.push_back(w.bytes);
  }
  std::vector<std::string> texts = Disassemble(pieces, intel);
  ASSERT_EQ(texts.size(), N) << "objdump did not run";
  for (size_t i = 0; i < N; ++i) {
    EXPECT_EQ(texts[i], CollapseBlanks(cases[i].text))
        << cases[i].call << "\n  bytes: " << HexBytes(pieces[i]);
  }
}

const EncodingCase kArithmeticCases[] = {
    CASE("add %ecx,%eax", ia32_add(3, kEAX, kECX)),
    CASE("add (%ebx),%edx", ia32_add(0, kEDX, kEBX)),
    CASE("sub %esi,%edi", ia32_sub(3, kEDI, kESI)),
    CASE("sub (%eax),%ecx", ia32_sub(0, kECX, kEAX)),
    CASE("xor %eax,%eax", ia32_xor(3, kEAX, kEAX)),
    CASE("xor %edi,%ebx", ia32_xor(3, kEBX, kEDI)),
    CASE("cmp %edx,%ecx", ia32_cmp(3, kECX, kEDX)),
    CASE("cmp (%edi),%eax", ia32_cmp(0, kEAX, kEDI)),
    CASE("cmp 0x12345678,%esp", ia32_cmp(0, kESP, kRMAbsolute, 0x12345678)),
    CASE("cmp -0x80(%ebp),%ecx", ia32_cmp(1, kECX, kEBP, -128)),
    CASE("imul %ebx,%eax", ia32_imul(3, kEAX, kEBX)),
    CASE("imul (%ecx),%esi", ia32_imul(0, kESI, kECX)),
    CASE("test %eax,%eax", ia32_test(3, kEAX, kEAX)),
    CASE("test %edi,%ecx", ia32_test(3, kEDI, kECX)),
    CASE("test %edx,(%ebx)", ia32_test(0, kEDX, kEBX)),
};

TEST(IA32Writer, Arithmetic) { ExpectDisassembly(kArithmeticCases); }

const EncodingCase kMovCases[] = {
    // Register direct and plain [reg].
    CASE("mov %ebp,%eax", ia32_mov(3, kEAX, kEBP)),
    CASE("mov %esp,%edi", ia32_mov(3, kEDI, kESP)),
    CASE("mov (%ebx),%eax", ia32_mov(0, kEAX, kEBX)),
    // ebp as a base always carries a displacement, 0 included.
    CASE("mov 0x0(%ebp),%eax", ia32_mov(1, kEAX, kEBP, 0)),
    CASE("mov 0x8(%ebp),%eax", ia32_mov(1, kEAX, kEBP, 8)),
    CASE("mov 0x7f(%ebp),%eax", ia32_mov(1, kEAX, kEBP, 127)),
    CASE("mov 0x80(%ebp),%eax", ia32_mov(2, kEAX, kEBP, 128)),
    CASE("mov -0x80(%ebp),%ecx", ia32_mov(1, kECX, kEBP, -128)),
    CASE("mov -0x81(%ebp),%ecx", ia32_mov(2, kECX, kEBP, -129)),
    CASE("mov 0x0(%ebx),%edx", ia32_mov(2, kEDX, kEBX, 0)),
    // mod 0 rm 5: an absolute address, not [ebp].
    CASE("mov 0x12345678,%eax", ia32_mov(0, kEAX, 5, 0x12345678)),
    CASE("mov 0x0,%edi", ia32_mov(0, kEDI, 5, 0)),
    // rm 4: the SIB byte gives the base; index 4 is none.
    CASE("mov (%esp),%eax", ia32_mov(0, kEAX, 4, 0, 4, 4)),
    CASE("mov (%ebx,%ecx,1),%eax", ia32_mov(0, kEAX, 4, 0, kECX, kEBX)),
    CASE("mov (%esi,%edx,4),%eax", ia32_mov(0, kEAX, 4, 2, kEDX, kESI)),

    CASE("mov %cl,%al", ia32_mov8(3, kEAX, kECX)),
    CASE("mov (%esi),%bl", ia32_mov8(0, kEBX, kESI)),
    CASE("mov 0x7f(%eax),%dl", ia32_mov8(1, kEDX, kEAX, 127)),
    CASE("mov 0x80(%eax),%dl", ia32_mov8(2, kEDX, kEAX, 128)),
    CASE("mov -0x81(%ebp),%cl", ia32_mov8(2, kECX, kEBP, -129)),
    CASE("mov (%esp),%al", ia32_mov8(0, kEAX, 4, 0, 4, 4)),

    CASE("mov %eax,%ecx", ia32_mov_backwards(3, kEAX, kECX)),
    CASE("mov %edx,(%edi)", ia32_mov_backwards(0, kEDX, kEDI)),
    CASE("mov %eax,0x0(%ebp)", ia32_mov_backwards(1, kEAX, kEBP, 0)),
    CASE("mov %eax,-0x80(%ebp)", ia32_mov_backwards(1, kEAX, kEBP, -128)),
    CASE("mov %eax,-0x81(%ebp)", ia32_mov_backwards(2, kEAX, kEBP, -129)),
    CASE("mov %esp,-0x4(%ebp)", ia32_mov_backwards(2, kESP, kEBP, -4)),
    // The immediate comes after the displacement, of either size.
    CASE("movl $0x7f,-0x80(%ebp)", ia32_mov_imm32(1, kEBP, -128, 127)),
    CASE("movl $0xffffff80,-0x81(%ebp)", ia32_mov_imm32(2, kEBP, -129, -128)),
    CASE("movl $0x80,0x7f(%ebx)", ia32_mov_imm32(1, kEBX, 127, 128)),
    CASE("movl $0x12345678,0x1000", ia32_mov_imm32(0, 5, 0x1000, 0x12345678)),
    CASE("mov $0xffffffff,%esi", ia32_mov_imm32(3, kESI, 0, -1)),
    CASE("mov %ebx,0x80(%esi)", ia32_mov_backwards(2, kEBX, kESI, 128)),
    CASE("mov %ecx,0x400",  ia32_mov_backwards(0, kECX, 5, 0x400)),
    CASE("mov %eax,(%esp)", ia32_mov_backwards(0, kEAX, 4, 0, 4, 4)),

    CASE("mov %al,%bl", ia32_mov8_backwards(3, kEAX, kEBX)),
    CASE("mov %cl,(%eax)", ia32_mov8_backwards(0, kECX, kEAX)),
    CASE("mov %al,0x7f(%ebx)", ia32_mov8_backwards(1, kEAX, kEBX, 127)),
    CASE("mov %al,0x80(%ebx)", ia32_mov8_backwards(2, kEAX, kEBX, 128)),
    CASE("mov %dl,(%esp)", ia32_mov8_backwards(0, kEDX, 4, 0, 4, 4)),

    CASE("lea -0x8(%ebp),%eax", ia32_lea(1, kEAX, kEBP, -8)),
    CASE("lea 0x80(%ebx),%ecx", ia32_lea(2, kECX, kEBX, 128)),
    CASE("lea 0x1000,%eax", ia32_lea(0, kEAX, 5, 0x1000)),

    CASE("mov $0x0,%eax", ia32_mov_imm32(kEAX, 0)),
    CASE("mov $0x7f,%ecx", ia32_mov_imm32(kECX, 127)),
    CASE("mov $0x80,%edx", ia32_mov_imm32(kEDX, 128)),
    CASE("mov $0xffffffff,%edi", ia32_mov_imm32(kEDI, -1)),
};

TEST(IA32Writer, Moves) { ExpectDisassembly(kMovCases); }

const EncodingCase kExtensionCases[] = {
    CASE("add $0x8,%esp", ia32_add_imm32(3, kESP, 8)),
    CASE("add $0x7f,%eax", ia32_add_imm32(3, kEAX, 127)),
    CASE("add $0x80,%eax", ia32_add_imm32(3, kEAX, 128)),
    CASE("add $0xffffff80,%eax", ia32_add_imm32(3, kEAX, -128)),
    CASE("addl $0xffffff7f,(%ebx)", ia32_add_imm32(0, kEBX, -129)),
    // The example of the control-word code: a 16-bit or on [esp].
    CASE("orw $0xc00,(%esp)", ia32_or_imm16(0, 4, 0, 4, 4, 0xC00)),
    CASE("orw $0xffff,(%eax,%ecx,1)", ia32_or_imm16(0, 4, 0, kECX, kEAX, 0xFFFF)),
    CASE("and $0xff,%eax", ia32_and_imm32(3, kEAX, 0xFF)),
    CASE("andl $0x80000000,(%ecx)", ia32_and_imm32(0, kECX, (int)0x80000000)),
    CASE("sub $0x10,%esp", ia32_sub_imm32(3, kESP, 16)),
    CASE("sub $0xffffff80,%edi", ia32_sub_imm32(3, kEDI, -128)),
    CASE("cmp $0x0,%eax", ia32_cmp_imm32(3, kEAX, 0)),
    CASE("cmp $0xffffffff,%edx", ia32_cmp_imm32(3, kEDX, -1)),
    CASE("cmpl $0x80,(%esi)", ia32_cmp_imm32(0, kESI, 128)),
    // Sign-extended: -128 and 127 are the ends of what one byte can say.
    CASE("and $0x1,%eax", ia32_and_imm8_se(3, kEAX, 1)),
    CASE("and $0x7f,%ecx", ia32_and_imm8_se(3, kECX, 127)),
    CASE("and $0xffffff80,%eax", ia32_and_imm8_se(3, kEAX, -128)),
    CASE("andl $0xffffffff,(%ebx)", ia32_and_imm8_se(0, kEBX, -1)),
    CASE("add $0x7f,%esp", ia32_add_imm8_se(3, kESP, 127)),
    CASE("addl $0xffffff80,(%ecx)", ia32_add_imm8_se(0, kECX, -128)),
    CASE("sub $0x10,%esp", ia32_sub_imm8_se(3, kESP, 16)),
    CASE("sub $0xffffff80,%edi", ia32_sub_imm8_se(3, kEDI, -128)),
    CASE("subl $0x1,0x12345678", ia32_sub_imm8_se(0, kRMAbsolute, 0x12345678, 1)),
    CASE("subl $0x1,-0x80(%ebp)", ia32_sub_imm8_se(1, kEBP, -128, 1)),
    CASE("cmp $0x0,%eax", ia32_cmp_imm8_se(3, kEAX, 0)),
    CASE("cmp $0x7f,%edx", ia32_cmp_imm8_se(3, kEDX, 127)),
    CASE("cmpl $0xffffffff,(%esi)", ia32_cmp_imm8_se(0, kESI, -1)),
    CASE("neg %eax", ia32_negi(3, kEAX)),
    CASE("negl (%ecx)", ia32_negi(0, kECX)),
    CASE("idiv %ecx", ia32_idiv(3, kECX)),
    CASE("idivl (%edi)", ia32_idiv(0, kEDI)),
    CASE("call *%eax", ia32_call(3, kEAX)),
    CASE("call *(%ebx)", ia32_call(0, kEBX)),
    CASE("push 0x0(%ebp)", ia32_push(1, kEBP, 0)),
    CASE("push -0x4(%ebp)", ia32_push(1, kEBP, -4)),
    CASE("push -0x81(%ebp)", ia32_push(2, kEBP, -129)),
    CASE("push 0x7f(%ebx)", ia32_push(1, kEBX, 127)),
    CASE("push 0x80(%ebx)", ia32_push(2, kEBX, 128)),
    CASE("push 0x1000", ia32_push(0, 5, 0x1000)),
    CASE("sete %al", ia32_sete(3, kEAX)),
    CASE("sete (%ebx)", ia32_sete(0, kEBX)),
    CASE("setne %cl", ia32_setne(3, kECX)),
    CASE("setl %dl", ia32_setl(3, kEDX)),
    CASE("setle %bl", ia32_setle(3, kEBX)),
    CASE("setg %al", ia32_setg(3, kEAX)),
    CASE("setge %cl", ia32_setge(3, kECX)),
};

TEST(IA32Writer, OpcodeExtensions) { ExpectDisassembly(kExtensionCases); }

// Relative targets are printed as addresses: the instruction's end plus rel.
const EncodingCase kShortFormCases[] = {
    CASE("cltd", ia32_cdq()),
    CASE("nop", ia32_nop()),
    CASE("ret", ia32_ret_near()),
    CASE("push %eax", ia32_push(kEAX)),
    CASE("push %esp", ia32_push(kESP)),
    CASE("push %ebp", ia32_push(kEBP)),
    CASE("push %edi", ia32_push(kEDI)),
    CASE("pop %eax", ia32_pop(kEAX)),
    CASE("pop %ebp", ia32_pop(kEBP)),
    CASE("pop %edi", ia32_pop(kEDI)),
    CASE("push $0x0", ia32_push_imm32(0)),
    CASE("push $0x7f", ia32_push_imm32(127)),
    CASE("push $0x80", ia32_push_imm32(128)),
    CASE("push $0xffffff80", ia32_push_imm32(-128)),
    CASE("push $0xffffff7f", ia32_push_imm32(-129)),
    CASE("push $0x7f", ia32_push_imm8_se(127)),
    CASE("push $0xffffff80", ia32_push_imm8_se(-128)),
    CASE("call 0x5", ia32_call_disp32(0)),
    CASE("call 0x0", ia32_call_disp32(-5)),
    CASE("jmp 0x5", ia32_jmp(0)),
    CASE("jmp 0x84", ia32_jmp(127)),
    CASE("jmp 0x85", ia32_jmp(128)),
    CASE("jmp 0xffffff85", ia32_jmp(-128)),
    CASE("je 0x6", ia32_je(0)),
    CASE("je 0x86", ia32_je(128)),
    CASE("jne 0x0", ia32_jne(-6)),
    CASE("jl 0xffffff85", ia32_jl(-129)),
    CASE("jle 0x10006", ia32_jle(0x10000)),
    CASE("jg 0x86", ia32_jg(128)),
    CASE("jge 0xffffff86", ia32_jge(-128)),
    CASE("jae 0x86", ia32_jae(128)),
};

TEST(IA32Writer, ShortForms) { ExpectDisassembly(kShortFormCases); }

// In AT&T syntax the disassembler names DE E9 and DE F9 "fsubrp" and
// "fdivrp", a long-standing quirk of that syntax; the Intel table below
// confirms they are the manual's fsubp and fdivp, st(1) op= st(0).
const EncodingCase kFloatCases[] = {
    CASE("faddp %st,%st(1)", ia32_faddp()),
    CASE("fsubrp %st,%st(1)", ia32_fsubp()),
    CASE("fmulp %st,%st(1)", ia32_fmulp()),
    CASE("fdivrp %st,%st(1)", ia32_fdivp()),
    CASE("fchs", ia32_fchs()),
    CASE("fcompp", ia32_fcompp()),
    CASE("fnstsw %ax", ia32_fnstsw()),
    // rm 4 is [esp] through a SIB byte; any other rm is plain [reg].
    CASE("fildl (%esp)", ia32_fild(0, 4)),
    CASE("fildl (%eax)", ia32_fild(0, kEAX)),
    CASE("fistpl (%esp)", ia32_fistp(0, 4)),
    CASE("fistpl (%edi)", ia32_fistp(0, kEDI)),
    CASE("flds (%esp)", ia32_fld32(0, 4)),
    CASE("fstps (%ebx)", ia32_fstp32(0, kEBX)),
    CASE("fstps (%esp)", ia32_fstp32(0, 4)),
    CASE("fldl (%esp)", ia32_fld64(0, 4)),
    CASE("fldl (%ebx)", ia32_fld64(0, 3)),
    CASE("fstpl (%esp)", ia32_fstp64(0, 4)),
    CASE("fstpl (%ecx)", ia32_fstp64(0, kECX)),
    CASE("fldcw (%esp)", ia32_fldcw(0, 4)),
    CASE("fldcw (%edx)", ia32_fldcw(0, kEDX)),
    CASE("fnstcw (%esp)", ia32_fnstcw(0, 4)),
    CASE("fnstcw (%esi)", ia32_fnstcw(0, kESI)),
    CASE("flds -0x4(%ebp)", ia32_fld32(1, kEBP, -4)),
    CASE("flds 0x80(%eax)", ia32_fld32(2, kEAX, 128)),
    CASE("fstps -0x81(%ebp)", ia32_fstp32(2, kEBP, -129)),
    CASE("fstps 0x7f(%ecx)", ia32_fstp32(1, kECX, 127)),
    CASE("fldl 0x8(%eax)", ia32_fld64(1, kEAX, 8)),
    CASE("fldl -0x80(%ebp)", ia32_fld64(1, kEBP, -128)),
    CASE("fldl 0x2000", ia32_fld64(0, 5, 0x2000)),
    CASE("fstpl 0x80(%ebp)", ia32_fstp64(2, kEBP, 128)),
    CASE("fstpl 0x0(%ebp)", ia32_fstp64(1, kEBP, 0)),
};

TEST(IA32Writer, FloatUnit) { ExpectDisassembly(kFloatCases); }

const EncodingCase kFloatIntelCases[] = {
    CASE("faddp st(1),st", ia32_faddp()),
    CASE("fsubp st(1),st", ia32_fsubp()),
    CASE("fmulp st(1),st", ia32_fmulp()),
    CASE("fdivp st(1),st", ia32_fdivp()),
    CASE("fld QWORD PTR [esp]", ia32_fld64(0, 4)),
    CASE("fistp DWORD PTR [esp]", ia32_fistp(0, 4)),
    CASE("or WORD PTR [esp],0xc00", ia32_or_imm16(0, 4, 0, 4, 4, 0xC00)),
};

TEST(IA32Writer, FloatUnitInIntelSyntax) { ExpectDisassembly(kFloatIntelCases, true); }

// The exact bytes, for the helpers (some write no whole instruction) and for
// the worked examples of the encoding rules.
struct ByteCase {
  ByteString bytes;
  char const* call;
  void (*write)(IA32OpWriter&);
};

#define BYTES(call, ...) {ByteString{__VA_ARGS__}, #call, [](IA32OpWriter& w) { w.call; }}

TEST(IA32Writer, ExactBytes) {
  const ByteCase kCases[] = {
      BYTES(ia32_WriteDisplacement(1, -4), 0xFC),
      BYTES(ia32_WriteDisplacement(2, -4), 0xFC, 0xFF, 0xFF, 0xFF),
      BYTES(ia32_WriteDisplacement(0, 0x1000), 0x00, 0x10, 0x00, 0x00),
      BYTES(ia32_WriteDisplacement(3, 5)),
      BYTES(ia32_WriteModRM(3, 7, 1), 0xF9),
      BYTES(ia32_WriteSIB(2, 1, 3), 0x8B),
      BYTES(ia32_WriteRegisterOpcode(0x58, 7), 0x5F),
      BYTES(ia32_WriteOpcode(0x0F, 0xAF), 0x0F, 0xAF),
      BYTES(ia32_mov(3, 0, 5), 0x8B, 0xC5),
      BYTES(ia32_fld64(0, 4), 0xDD, 0x04, 0x24),
      BYTES(ia32_fld64(0, 3), 0xDD, 0x03),
      BYTES(ia32_or_imm16(0, 4, 0, 4, 4, 0xC00), 0x66, 0x81, 0x0C, 0x24, 0x00, 0x0C),
      // The field of a call and a jump is the instruction's last four bytes,
      // which is where the generator's fix-ups point.
      BYTES(ia32_call_disp32(0x11223344), 0xE8, 0x44, 0x33, 0x22, 0x11),
      BYTES(ia32_jle(-2), 0x0F, 0x8E, 0xFE, 0xFF, 0xFF, 0xFF),
      // The epilog ends 5D C3; the exception unwinder stops its scan there.
      BYTES(ia32_pop(kEBP); w.ia32_ret_near(), 0x5D, 0xC3),
  };
  for (ByteCase const& c : kCases) {
    ByteWriter w;
    c.write(w);
    EXPECT_EQ(HexBytes(w.bytes), HexBytes(c.bytes)) << c.call;
  }
}

#if defined(KV_CHECKS)
// Fields out of range would silently make another instruction; the helpers
// refuse them instead.
TEST(IA32WriterDeathTest, FieldsOutOfRange) {
  ByteWriter w;
  EXPECT_DEATH(w.ia32_WriteModRM(4, 0, 0), "internal check failed");
  EXPECT_DEATH(w.ia32_WriteModRM(3, 8, 0), "internal check failed");
  EXPECT_DEATH(w.ia32_WriteSIB(4, 0, 0), "internal check failed");
  EXPECT_DEATH(w.ia32_WriteDisplacement(1, 128), "internal check failed");
  EXPECT_DEATH(w.ia32_WriteDisplacement(1, -129), "internal check failed");
  EXPECT_DEATH(w.ia32_and_imm8_se(3, kEAX, 128), "internal check failed");
  // [esp] and [ebp] cannot be written as plain mod 0 operands.
  EXPECT_DEATH(w.ia32_mov(0, kEAX, kESP), "internal check failed");
  EXPECT_DEATH(w.ia32_mov(0, kEAX, kEBP), "internal check failed");
  // A displacement off esp needs a SIB byte, which the writer doesn't offer.
  EXPECT_DEATH(w.ia32_mov(1, kEAX, kESP, 8), "internal check failed");
}
#endif

}  // namespace
