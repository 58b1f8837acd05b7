#pragma once
// Text helpers over byte strings in the Windows-1252 code page.

#include <cstdint>
#include <string>
#include <string_view>

namespace quellor {

// Upper- and lower-casing that follow Windows-1252 (a-z and the accented letters).
char UpperChar(char c);
char LowerChar(char c);
std::string UCase(std::string_view s);
std::string LCase(std::string_view s);

// Removes blanks (0x20) only, never tabs.
std::string Trim(std::string_view s);
std::string LTrim(std::string_view s);
std::string RTrim(std::string_view s);

// 1-based position of `find` in `s` starting at 1-based `start`; 0 when absent (InStr).
size_t InStr(std::string_view s, std::string_view find, size_t start = 1);
// Case-insensitive InStr (both sides folded with Windows-1252 casing).
size_t InStrNoCase(std::string_view s, std::string_view find, size_t start = 1);
// 1-based position of the last occurrence; 0 when absent (InStrRev).
size_t InStrRev(std::string_view s, std::string_view find);
// Replaces every case-sensitive occurrence (Replace).
std::string ReplaceAll(std::string_view s, std::string_view find, std::string_view replacement);

// The numeric value of a text: the leading number after skipped blanks (0x20 only): digits with
// optional sign and decimal point, or "&H" hexadecimal, "&O" octal; 0 when there is none.
double Val(std::string_view s);
// Conversion to a 16-bit integer: halves round to even; outside -32768..32767 raises Overflow.
int16_t CInt16(double v);
// Conversion to a 32-bit integer with the same rounding; raises Overflow outside its range.
int32_t CLng(double v);
// A text written as one line (envelope, header, list or log line): CR, LF and NUL inside it
// become blanks, so no text taken from mail can add lines of its own.
std::string OneLine(std::string_view text);
// Whether a header line continues the field above it: it begins with a blank or a tab.
bool IsContinuationLine(std::string_view line);
// A file name without its last four characters, the extension ("x.EML" -> "x"); like
// Left$(name, Len(name) - 4) it raises "Invalid procedure call" for a shorter name.
std::string WithoutExtension(std::string_view name);
// Removes a trailing CR LF (only when the text has at least those two characters).
void StripLineEnd(std::string& text);
// Plain decimal text of a whole number ("13", "-2").
std::string DecimalText(double v);
// A number as a signed text with a leading blank for values from 0 up (" 3", "-1").
std::string SignedText(long v);

// Windows-1252 <-> UTF-8; characters that Windows-1252 cannot hold become '?'.
std::string Utf8ToCp1252(std::string_view utf8);
std::string Cp1252ToUtf8(std::string_view cp1252);
// Converts text in any charset known to iconv to Windows-1252 ('?' for what it cannot hold).
std::string ToCp1252(std::string_view text, const char* charset);

}  // namespace quellor
