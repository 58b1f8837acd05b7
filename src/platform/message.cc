#include "platform/message.h"

#include <fcntl.h>
#include <gmime/gmime.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "platform/text.h"

namespace quellor {

namespace {

// Reading stops at the first empty line; a header block without one is cut near this size at
// a header-line boundary and the remainder is carried through like the body.
constexpr size_t kMaxHeaderBlock = 1 << 20;
constexpr size_t kReadBlock = 16 * 1024;
constexpr size_t kCopyBlock = 64 * 1024;
// Encoded words are at most 75 characters; folded lines aim at 76.
constexpr size_t kEncodedWordMax = 75;
constexpr size_t kFoldColumn = 76;
constexpr std::string_view kWordCharset = "windows-1252";

// GMime is initialised once per process, on first use; it is never shut down.
GMimeParserOptions* DecodeOptions() {
  static GMimeParserOptions* options = [] {
    g_mime_init();
    GMimeParserOptions* o = g_mime_parser_options_new();
    // Raw 8-bit header text that is not UTF-8 is taken as the system's code page.
    const char* fallback[] = {"UTF-8", "windows-1252", nullptr};
    g_mime_parser_options_set_fallback_charsets(o, fallback);
    return o;
  }();
  return options;
}

char AsciiLower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

// The field name of a header line ("" when the line is not a well-formed "name:" line).
std::string FieldName(std::string_view line) {
  size_t colon = line.find(':');
  if (colon == std::string_view::npos) return "";
  size_t end = colon;
  while (end > 0 && IsBlank(line[end - 1])) --end;  // obsolete "Name :" form
  if (end == 0) return "";
  for (size_t i = 0; i < end; ++i) {
    unsigned char c = static_cast<unsigned char>(line[i]);
    if (c < 33 || c > 126) return "";
  }
  return std::string(line.substr(0, end));
}

// Characters that a Q-encoded word may carry as they are, in any header.
bool QSafe(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '!' ||
         c == '*' || c == '+' || c == '-' || c == '/';
}

std::string QEncode(std::string_view bytes) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : bytes) {
    if (c == ' ') {
      out += '_';
    } else if (QSafe(c)) {
      out += static_cast<char>(c);
    } else {
      out += '=';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::string BEncode(std::string_view bytes) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t v = (static_cast<unsigned char>(bytes[i]) << 16) |
                 (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                 static_cast<unsigned char>(bytes[i + 2]);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (i < bytes.size()) {
    uint32_t v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += (i + 1 < bytes.size()) ? kAlphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

// Encoded words of Windows-1252 bytes, each at most 75 characters: Q, which stays readable,
// unless B is clearly shorter.
std::vector<std::string> EncodedWords(std::string_view bytes) {
  const std::string prefix_q = "=?" + std::string(kWordCharset) + "?Q?";
  const std::string prefix_b = "=?" + std::string(kWordCharset) + "?B?";
  const size_t room = kEncodedWordMax - prefix_q.size() - 2;
  size_t q_length = 0;
  for (unsigned char c : bytes) q_length += (c == ' ' || QSafe(c)) ? 1 : 3;
  const size_t b_length = (bytes.size() + 2) / 3 * 4;
  std::vector<std::string> words;
  if (q_length <= b_length + b_length / 3) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
      std::string piece = QEncode(bytes.substr(i, 1));
      if (text.size() + piece.size() > room) {
        words.push_back(prefix_q + text + "?=");
        text.clear();
      }
      text += piece;
    }
    if (!text.empty()) words.push_back(prefix_q + text + "?=");
  } else {
    const size_t chunk = room / 4 * 3;
    for (size_t i = 0; i < bytes.size(); i += chunk) {
      words.push_back(prefix_b + BEncode(bytes.substr(i, chunk)) + "?=");
    }
  }
  return words;
}

// "name: value" with its line end. A value with bytes above 127 becomes encoded words (words
// that look like encoded words are encoded too, so that they read back as written) and the line
// is folded between words; any other value is written as it is, on one line.
std::string HeaderLine(const std::string& name, const std::string& value, const std::string& eol) {
  bool eight_bit = std::any_of(value.begin(), value.end(),
                               [](char c) { return static_cast<unsigned char>(c) > 127; });
  if (!eight_bit) return name + ": " + value + eol;

  struct Token {
    std::string_view blanks;
    std::string_view word;
    bool encode;
  };
  std::vector<Token> tokens;
  std::string_view rest(value);
  while (!rest.empty()) {
    size_t w = 0;
    while (w < rest.size() && IsBlank(rest[w])) ++w;
    size_t e = w;
    while (e < rest.size() && !IsBlank(rest[e])) ++e;
    std::string_view word = rest.substr(w, e - w);
    bool encode = word.find("=?") != std::string_view::npos ||
                  std::any_of(word.begin(), word.end(),
                              [](char c) { return static_cast<unsigned char>(c) > 127; });
    tokens.push_back({rest.substr(0, w), word, encode});
    rest.remove_prefix(e);
  }

  // Pieces of the value, each preceded by the blanks where the line may be folded. The blanks
  // between two encoded words would vanish when decoded, so a run of such words is encoded whole.
  std::vector<std::pair<std::string, std::string>> pieces;
  for (size_t i = 0; i < tokens.size();) {
    if (!tokens[i].encode) {
      pieces.emplace_back(std::string(tokens[i].blanks), std::string(tokens[i].word));
      ++i;
      continue;
    }
    std::string run(tokens[i].word);
    size_t k = i + 1;
    for (; k < tokens.size() && tokens[k].encode; ++k) {
      run += tokens[k].blanks;
      run += tokens[k].word;
    }
    std::vector<std::string> words = EncodedWords(run);
    for (size_t n = 0; n < words.size(); ++n) {
      pieces.emplace_back(n == 0 ? std::string(tokens[i].blanks) : std::string(" "), words[n]);
    }
    i = k;
  }

  std::string line = name + ":";
  size_t column = line.size();
  bool first = true;
  for (auto& [blanks, text] : pieces) {
    if (first) {
      line += " " + blanks + text;
      column += 1 + blanks.size() + text.size();
      first = false;
    } else if (!blanks.empty() && column + blanks.size() + text.size() > kFoldColumn) {
      line += eol + blanks + text;
      column = blanks.size() + text.size();
    } else {
      line += blanks + text;
      column += blanks.size() + text.size();
    }
  }
  return line + eol;
}

// Closes a descriptor on every way out of a scope.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  void Reset(int fd) {
    Close();
    fd_ = fd;
  }
  // Closes and returns the seam's result (0 when nothing was open).
  int Close() {
    int rc = 0;
    if (fd_ >= 0) rc = Fs().Close(fd_);
    fd_ = -1;
    return rc;
  }

 private:
  int fd_;
};

// Reads up to n bytes (fewer only at the end of the file); raises on failure.
size_t ReadFully(int fd, char* buf, size_t n) {
  size_t got = 0;
  while (got < n) {
    long r = Fs().Read(fd, buf + got, n - got);
    if (r == -EINTR) continue;
    if (r < 0) RaiseErrno(static_cast<int>(-r));
    if (r == 0) break;
    got += static_cast<size_t>(r);
  }
  return got;
}

}  // namespace

struct MessageComponent::Impl {
  // One header field: its line and continuation lines, line ends included.
  struct Field {
    std::string name;  // "" for a line that is not a "name:" line
    std::string raw;
  };

  bool open = false;
  std::string source;        // actual path of the opened file
  std::string header;        // the header block as read (up to the empty line)
  std::string eol = "\r\n";  // the file's own line end
  std::vector<Field> fields;

  void Clear() {
    open = false;
    source.clear();
    header.clear();
    eol = "\r\n";
    fields.clear();
  }

  void ReadHeaderBlock(int fd);
  void SplitFields();
  std::string EditedHeader() const;
};

// Reads blocks until the first empty line (or the end of the file, or the size limit) and keeps
// the bytes before it.
void MessageComponent::Impl::ReadHeaderBlock(int fd) {
  std::string head;
  size_t line_start = 0;  // start of the line not yet ended
  size_t scan = 0;        // next byte to look at for a line feed
  std::optional<size_t> end;
  bool at_end = false;
  while (!end && !at_end) {
    if (head.size() >= kMaxHeaderBlock && line_start < head.size()) break;
    if (head.size() >= kMaxHeaderBlock + kReadBlock) break;
    size_t old = head.size();
    head.resize(old + kReadBlock);
    size_t got = ReadFully(fd, head.data() + old, kReadBlock);
    head.resize(old + got);
    at_end = got < kReadBlock;
    while (scan < head.size()) {
      const void* lf = std::memchr(head.data() + scan, '\n', head.size() - scan);
      if (!lf) {
        scan = head.size();
        break;
      }
      size_t i = static_cast<const char*>(lf) - head.data();
      size_t length = i - line_start;
      if (length == 0 || (length == 1 && head[line_start] == '\r')) {
        end = line_start;
        break;
      }
      line_start = i + 1;
      scan = i + 1;
    }
  }

  size_t first_lf = head.find('\n');
  if (first_lf != std::string::npos)
    eol = (first_lf > 0 && head[first_lf - 1] == '\r') ? "\r\n" : "\n";

  size_t cut;
  if (end) {
    cut = *end;
  } else if (at_end) {
    cut = head.size();  // no empty line: the whole file is header
  } else {
    // Too large: cut at the start of a header line, never before a continuation line.
    cut = line_start;
    while (cut > 0 && cut < head.size() && IsBlank(head[cut])) {
      size_t previous = cut >= 2 ? head.rfind('\n', cut - 2) : std::string::npos;
      cut = previous == std::string::npos ? 0 : previous + 1;
    }
  }
  head.resize(cut);
  head.shrink_to_fit();
  header = std::move(head);
}

void MessageComponent::Impl::SplitFields() {
  fields.clear();
  size_t pos = 0;
  while (pos < header.size()) {
    size_t lf = header.find('\n', pos);
    size_t next = lf == std::string::npos ? header.size() : lf + 1;
    std::string_view line(header.data() + pos, next - pos);
    if (!fields.empty() && IsBlank(line[0])) {
      fields.back().raw += line;
    } else {
      fields.push_back({FieldName(line), std::string(line)});
    }
    pos = next;
  }
}

std::string MessageComponent::Impl::EditedHeader() const {
  std::string out;
  for (const Field& f : fields) out += f.raw;
  return out;
}

MessageComponent::MessageComponent() : impl_(std::make_unique<Impl>()) {}
MessageComponent::~MessageComponent() = default;

int MessageComponent::Open(const std::string& path) {
  impl_->Clear();
  try {
    std::optional<std::string> actual = ResolveExisting(path);
    if (!actual) return kErrFileNotFound;
    int fd = OpenRegular(*actual, O_RDONLY, 0);
    if (fd < 0) return ErrorNumberFromErrno(-fd);
    Descriptor file(fd);
    impl_->ReadHeaderBlock(file.get());
    file.Close();
    impl_->SplitFields();
    impl_->source = *actual;
    impl_->open = true;
    return 0;
  } catch (const RuntimeError& e) {
    impl_->Clear();
    return e.number();
  } catch (const std::exception&) {
    impl_->Clear();
    return kErrPathFileAccess;
  }
}

std::string MessageComponent::Subject() const {
  return Header("Subject");
}

std::string MessageComponent::Header(std::string_view name) const {
  for (const Impl::Field& f : impl_->fields) {
    if (!SameName(f.name, name)) continue;
    std::string value = f.raw.substr(f.raw.find(':') + 1);
    GMimeParserOptions* options = DecodeOptions();
    char* unfolded = g_mime_utils_header_unfold(value.c_str());
    char* decoded = g_mime_utils_header_decode_text(options, unfolded ? unfolded : "");
    std::string utf8 = decoded ? decoded : "";
    g_free(decoded);
    g_free(unfolded);
    return Utf8ToCp1252(utf8);
  }
  return "";
}

bool MessageComponent::HasHeader(std::string_view name) const {
  return std::any_of(impl_->fields.begin(), impl_->fields.end(),
                     [&](const Impl::Field& f) { return SameName(f.name, name); });
}

void MessageComponent::RemoveHeader(std::string_view name) {
  if (name.empty()) return;
  std::erase_if(impl_->fields, [&](const Impl::Field& f) { return SameName(f.name, name); });
}

void MessageComponent::AddHeader(std::string_view name, std::string_view value) {
  if (!impl_->open) return;
  auto& fields = impl_->fields;
  // The last line of a file that is all header may lack its line end.
  if (!fields.empty() && fields.back().raw.back() != '\n') fields.back().raw += impl_->eol;
  std::string clean_name = OneLine(name);
  fields.push_back({clean_name, HeaderLine(clean_name, OneLine(value), impl_->eol)});
}

void MessageComponent::Save(const std::string& path) {
  Impl& m = *impl_;
  if (!m.open) Raise(kErrBadFileNumber);

  int fd = OpenRegular(m.source, O_RDONLY, 0);
  if (fd < 0) RaiseErrno(-fd);
  Descriptor source(fd);
  struct stat source_stat;
  int rc = Fs().Fstat(source.get(), &source_stat);
  if (rc < 0) RaiseErrno(-rc);

  // The file must still begin with the header block that was read, or the copy would mix two
  // different messages.
  std::string check(m.header.size(), '\0');
  if (ReadFully(source.get(), check.data(), check.size()) != check.size() || check != m.header) {
    Raise(kErrPathFileAccess);
  }

  const std::string target = ResolveForCreate(path);
  struct stat target_stat;
  const bool over_source = Fs().Lstat(target, &target_stat) == 0 &&
                           target_stat.st_dev == source_stat.st_dev &&
                           target_stat.st_ino == source_stat.st_ino;
  const std::string edited = m.EditedHeader();
  AtomicReplacement replacement(target, static_cast<int>(source_stat.st_mode & 0777));
  replacement.file().Write(edited);
  std::string block(kCopyBlock, '\0');
  for (;;) {
    size_t got = ReadFully(source.get(), block.data(), block.size());
    replacement.file().Write(std::string_view(block.data(), got));
    if (got < block.size()) break;
  }
  source.Close();
  replacement.Commit();

  // Saved over the opened file itself: the edited header block is now the file's own, so a
  // further edit and save start from it.
  if (over_source) {
    m.header = edited;
    m.source = target;
  }
}

}  // namespace quellor
