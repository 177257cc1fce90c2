// The host's part of the script library: the string functions, the clocks
// and the number-to-text functions that the host library table declares,
// as the stand-in host supplies them to the engine by their entry names.
//
// Conventions, the engine's for every host entry without a `self`:
// - Plain C calls. Integer is a 32-bit `long`, Double a `double`, String a
//   `stringStorage*` that the function borrows; a returned string carries
//   one reference for the caller, and the empty string is null.
// - Positions count from 1. The plain names count characters of UTF-8
//   text (a lead byte with the continuation bytes it calls for; a stray
//   byte counts as one); the names ending in B count bytes.
// - The plain searching functions (InStr, Replace, ReplaceAll, CountFields,
//   NthField) match letters without regard to case: the letters of ASCII,
//   Latin-1, Latin Extended-A, the Greek alphabet (with its accented
//   letters) and Cyrillic fold to upper case. The B forms compare bytes
//   exactly.
// - A result cut from a text keeps that text's encoding tag; new text is
//   tagged UTF-8.
//
// Format formats by a pattern: it comes with the number formatter.
#pragma once

#include <cstdint>

struct stringStorage;
struct RuntimeArray;

// Defines every entry below with the stand-in host's resolver. A reset of
// the stand-in host forgets them, so call it again after each reset.
void RegisterHostLibrary();

extern "C" {
// Asc: the first character's code point; AscB its first byte; 0 for "".
long StringDBCSAsc(stringStorage* text);
long StringAsc(stringStorage* text);
// Chr: the character of a code point (U+FFFD for no character); ChrB one byte.
stringStorage* StringDBCSChr(long code);
stringStorage* StringChr(long code);

long StringDBCSLen(stringStorage* text);
long StringLen(stringStorage* text);
// The first or last `count` characters (bytes); all of a shorter text, none for count < 1.
stringStorage* StringDBCSLeft(stringStorage* text, long count);
stringStorage* StringLeft(stringStorage* text, long count);
stringStorage* StringDBCSRight(stringStorage* text, long count);
stringStorage* StringRight(stringStorage* text, long count);
// From `start` (below 1 counts as 1), `count` characters (bytes) or to the
// end; nothing for a start past the end or a count below 1.
stringStorage* StringDBCSMid3(stringStorage* text, long start, long count);
stringStorage* StringDBCSMid2(stringStorage* text, long start);
stringStorage* StringMid3(stringStorage* text, long start, long count);
stringStorage* StringMid2(stringStorage* text, long start);

// The position of `needle` at or after `start` (0 and 1 both mean the
// beginning), 0 if it is not there or is empty.
long StringInStr(long start, stringStorage* haystack, stringStorage* needle);
long StringInStrB(long start, stringStorage* haystack, stringStorage* needle);
long StringExtendsInStr(stringStorage* haystack, long start, stringStorage* needle);
long StringExtendsInStrB(stringStorage* haystack, long start, stringStorage* needle);

// Fields between delimiters: "" has none; an empty delimiter makes the
// whole text one field. NthField gives "" for an index outside 1..count.
long StringCountFields(stringStorage* text, stringStorage* delimiter);
stringStorage* StringNthField(stringStorage* text, stringStorage* delimiter, long index);

// The first, or every (left to right, never overlapping), occurrence of
// `old` replaced; an empty `old` leaves the text as it is.
stringStorage* StringReplace(stringStorage* source, stringStorage* old, stringStorage* replacement);
stringStorage* StringReplaceAll(stringStorage* source, stringStorage* old, stringStorage* replacement);
stringStorage* StringReplaceB(stringStorage* source, stringStorage* old, stringStorage* replacement);
stringStorage* StringReplaceAllB(stringStorage* source, stringStorage* old, stringStorage* replacement);

stringStorage* StringLCase(stringStorage* text);
stringStorage* StringUCase(stringStorage* text);
// The first letter of each word upper case, the others lower; a word is a
// run of letters, digits and apostrophes.
stringStorage* StringTitleCase(stringStorage* text);
// Spaces, tabs, carriage returns and line feeds off one end or both.
stringStorage* runLTrim(stringStorage* text);
stringStorage* runRTrim(stringStorage* text);
stringStorage* runTrim(stringStorage* text);

// The elements of a String array with the delimiter between them; a nil
// array raises NilObjectException and gives "".
stringStorage* StringJoin(RuntimeArray* fields, stringStorage* delimiter);
// The fields between delimiters, as CountFields and NthField see them, in a
// new String array (one reference for the caller): "" gives an empty array
// (Ubound -1), a delimiter at an end an empty field there. An empty
// delimiter gives each character as a field of its own, so that Join with
// "" puts the text together again. Null, having raised, when memory runs out.
RuntimeArray* StringSplit(stringStorage* source, stringStorage* delimiter);

// -1, 0 or 1: mode 0 compares bytes exactly, any other mode ignores case.
long StringStrCompare(stringStorage* a, stringStorage* b, long mode);

// The number at the start of the text, after blanks: decimal with an
// optional sign, fraction and exponent, or &h, &o, &b for hex, octal and
// binary. 0 when there is none.
double StringVal(stringStorage* text);
double runCDbl(stringStorage* text);
// The language's default rendering: seven significant digits without
// trailing zeros from 0.00001 to 1000000, scientific beyond ("1.000001e+6",
// "1.000000e-06"); "-0" reads "0", and every NaN "nan".
stringStorage* StringStr(double value);
stringStorage* runCStr(double value);
// The 32-bit two's complement in base 16 (upper case), 8 or 2, no leading zeros.
stringStorage* RuntimeHex(long value);
stringStorage* RuntimeOct(long value);
stringStorage* RuntimeBin(long value);

// Time from a fixed point of the machine's monotonic clock: only
// differences mean anything. Ticks are sixtieths of a second, wrapping
// around at 32 bits.
double RuntimeMicroseconds();
long RuntimeTicks();
}
