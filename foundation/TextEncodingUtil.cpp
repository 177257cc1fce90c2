#include "foundation/TextEncodingUtil.h"

#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <initializer_list>

#include "foundation/String.h"

namespace {

struct EncodingName {
  unsigned long tag;
  char const* name;
};

// iconv names by tag; the unknown tag takes the system encoding's name.
EncodingName const kEncodingNames[] = {
    {0, "MAC"},          {7, "MACCYRILLIC"},  {29, "MACUK"},         {256, "UTF16LE"},
    {513, "ISO_8859-1"}, {514, "ISO_8859-2"}, {515, "ISO_8859-3"},   {516, "ISO_8859-4"},
    {517, "ISO_8859-5"}, {518, "ISO_8859-6"}, {519, "ISO_8859-7"},   {520, "ISO_8859-8"},
    {521, "ISO_8859-9"}, {527, "ISO_8859-15:1998"},                   {1024, "CP437"},
    {1029, "CP737"},     {1030, "CP775"},     {1040, "CP850"},       {1041, "CP851"},
    {1042, "CP852"},     {1043, "CP855"},     {1044, "CP857"},       {1045, "CP860"},
    {1046, "CP861"},     {1047, "CP862"},     {1048, "CP863"},       {1049, "CP864"},
    {1050, "CP865"},     {1051, "CP866"},     {1052, "CP869"},       {1053, "CP874"},
    {1056, "CP932"},     {1057, "CP936"},     {1058, "CP949"},       {1059, "CP950"},
    {1280, "CP1252"},    {1281, "CP1250"},    {1282, "CP1251"},      {1283, "CP1253"},
    {1284, "CP1254"},    {1285, "CP1255"},    {1286, "CP1256"},      {1287, "CP1257"},
    {1288, "CP1258"},    {1296, "CP1361"},    {1536, "US-ASCII"},    {1585, "CP936"},
    {2080, "ISO-2022-JP"}, {2336, "EUCJP"},   {2561, "CP932"},       {3073, "CP037"},
    {3074, "CP037"},     {kEncodingUTF8, "UTF8"},
};

bool IsAsciiCompatible(unsigned long tag) { return tag == kEncodingASCII || tag == kEncodingUTF8; }

// The conversion target when no tag can hold both texts as they stand.
unsigned long WidestTarget(unsigned long a, unsigned long b) {
  bool utf16 = a == kEncodingUTF16 || b == kEncodingUTF16;
  bool utf8 = a == kEncodingUTF8 || b == kEncodingUTF8;
  return utf16 && !utf8 ? kEncodingUTF16 : kEncodingUTF8;
}

}  // namespace

char const* GetCodeNameFromEncoding(unsigned long tag) {
  if (tag == kEncodingUnknown)
    return GetCodeNameFromEncoding(GetSystemEncoding());
  for (EncodingName const& e : kEncodingNames) {
    if (e.tag == tag)
      return e.name;
  }
  return nullptr;
}

unsigned long CommonEncoding(unsigned long a, unsigned long b, unsigned char allowConversion) {
  if (a == b)
    return a;
  if (IsAsciiCompatible(a) && IsAsciiCompatible(b))
    return kEncodingUTF8;
  if (a == kEncodingASCII && !IsWideEncoding(b))
    return b;
  if (b == kEncodingASCII && !IsWideEncoding(a))
    return a;
  if (allowConversion)
    return WidestTarget(a, b);
  return kEncodingUnknown;
}

unsigned long ConvertToSameEncoding(string* a, string* b) {
  if (a->Storage() == nullptr)
    return b->Storage() ? b->Encoding() : kEncodingASCII;
  if (b->Storage() == nullptr)
    return a->Encoding();
  unsigned long tagA = a->Encoding(), tagB = b->Encoding();
  if (tagA == tagB)
    return tagA;
  if (tagA == kEncodingUnknown || tagB == kEncodingUnknown)
    return kEncodingUnknown;
  unsigned long target = CommonEncoding(tagA, tagB, 0);
  if (target != kEncodingUnknown)
    return target;
  target = WidestTarget(tagA, tagB);
  for (string* s : {a, b}) {
    if (s->Encoding() == target)
      continue;
    string converted = ConvertEncoding(*s, target);
    if (converted.Length() == 0)
      return kEncodingUnknown;
    *s = converted;
  }
  return target;
}

// The one-entry cache of ConvertEncoding: the last source and its result.
static string sCachedSource;
static string sCachedResult;

void ClearConvertEncodingCache() {
  sCachedSource = string();
  sCachedResult = string();
}

string ConvertEncoding(string s, unsigned long tag) {
  if (tag == kEncodingUnknown || s.Storage() == nullptr || s.Encoding() == tag)
    return s;
  if (s.Storage() == sCachedSource.Storage() && sCachedResult.Storage() &&
      sCachedResult.Encoding() == tag)
    return sCachedResult;
  sCachedSource = s;
  bool asciiSafeTarget = tag == kEncodingUTF8 || tag < 256 || tag > 512;
  if (asciiSafeTarget && (s.Encoding() == kEncodingASCII || s.ContainsOnlyASCII())) {
    string copy;
    copy.ConstructFromBuffer(s.CString(), (int)s.Length());
    copy.SetEncoding(tag);
    sCachedResult = copy;
  } else {
    string converted;
    converted.AdoptReference(ConvertTextUnix(s.Storage(), s.Encoding(), tag));
    sCachedResult = converted;
  }
  return sCachedResult;
}

stringStorage* ConvertTextUnix(stringStorage* s, unsigned long from, unsigned long to) {
  char const* fromName = GetCodeNameFromEncoding(from);
  char const* toName = GetCodeNameFromEncoding(to);
  string source(s);
  if (!fromName || !toName)
    return source.ExtractStringStorage();
  iconv_t cd = iconv_open(toName, fromName);
  if (cd == (iconv_t)-1)
    return source.ExtractStringStorage();

  // Four output bytes per input byte and a little slack cover every
  // conversion among the tags above, "?" replacements included.
  long inLength = source.Length();
  int capacity = (int)(inLength * 4 + 4);
  string out;
  out.AllocateBuffer(capacity);
  if (!out.Storage()) {
    iconv_close(cd);
    return source.ExtractStringStorage();
  }
  char* in = const_cast<char*>(source.CString());
  size_t inLeft = (size_t)inLength;
  char* outStart = out.MutableChar(0);
  char* outPtr = outStart;
  size_t outLeft = (size_t)capacity;
  while (inLeft > 0) {
    size_t r = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    if (r != (size_t)-1 || inLeft == 0)
      break;
    if ((errno != EINVAL && errno != EILSEQ) || outLeft == 0) {
      iconv_close(cd);
      return source.ExtractStringStorage();
    }
    // A byte with no counterpart becomes one "?" and the rest goes on.
    in++;
    inLeft--;
    *outPtr++ = '?';
    outLeft--;
  }
  iconv_close(cd);
  long written = outPtr - outStart;
  if (written == 0)
    return nullptr;
  stringStorage* record = out.Storage();
  outStart[written] = 0;
  record->mLength = (uint32_t)written;
  record->mBuffer[0] = (char)(written < 256 ? written : 255);
  record->mEncoding = (uint32_t)to;
  return out.ExtractStringStorage();
}

void GetEncodingAttributes(unsigned long tag, int& base, int& variant, int& format) {
  if (tag == kEncodingUTF8) {
    base = 256;
    variant = 0;
    format = 2;
  } else {
    base = (int)tag;
    variant = 0;
    format = 0;
  }
}

unsigned long GetSystemEncoding() {
  // The font "System" is Latin-1 on this platform; taken once and kept.
  static unsigned long const sSystemEncoding = GetEncodingFromFont(string("System"));
  return sSystemEncoding;
}

unsigned long GetEncodingFromFont(string font) {
  static string sCachedFont;
  static unsigned long sCachedEncoding = kEncodingASCII;
  if (font.CompareWithCase(sCachedFont) == 0)
    return sCachedEncoding;
  return 513;
}

string ConvertToSystemEncoding(string s) { return s; }
