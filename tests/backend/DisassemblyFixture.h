// Test support for IA-32 encodings: a writer that collects bytes, and the
// system disassembler's reading of them.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "backend/IA32OpWriter.h"

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

inline constexpr char kObjdump[] = "/usr/bin/objdump";

inline std::string HexBytes(ByteString const& bytes) {
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
inline std::string CollapseBlanks(std::string const& text) {
  std::string out;
  for (char c : text) {
    bool blank = c == ' ' || c == '\t';
    if (blank && (out.empty() || out.back() == ' ')) continue;
    out += blank ? ' ' : c;
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

namespace ia32_disassembly_detail {

// The text column of an instruction line "   0:\t8b 45 08 \tmov ...", or ""
// for a line that only continues the bytes of the one before.
inline bool InstructionText(std::string const& line, std::string& text) {
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

}  // namespace ia32_disassembly_detail

// Disassembles each byte string on its own, as a file of its own at offset 0,
// all with one objdump run. Each result is the instruction texts found,
// joined by " ; ", so a string that is not exactly one instruction shows as
// more than one. `intel` asks for Intel syntax. An empty string gives "";
// a failure to run objdump gives an empty vector.
inline std::vector<std::string> Disassemble(std::vector<ByteString> const& pieces, bool intel = false) {
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
    } else if (current >= 0 && ia32_disassembly_detail::InstructionText(s, text) && !text.empty()) {
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
