#include "guard/state.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "common/fail.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::string_view kTitle = "virtdisk sync state 1\n";
constexpr std::string_view kTitleOfAnyVersion = "virtdisk sync state ";
constexpr std::string_view kChecksum = "checksum ";
constexpr std::string_view kNothing = "-";

// Some file systems tell times to two seconds only.
constexpr std::int64_t kCoarsestTick = 2'000'000'000;

std::uint64_t HashText(std::string_view text) {
  return HashBytes(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::string Hex(std::uint64_t number) {
  std::array<char, 16> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
  return {digits.data(), end};
}

// Blanks, line feeds, "%" and all that is no plain character become "%XX". An empty path is "%".
std::string Escaped(std::string_view text) {
  if (text.empty()) return "%";
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F && c != '%') {
      escaped += c;
      continue;
    }
    const std::string hex = Hex(byte);
    escaped.append("%").append(hex.size() == 1 ? "0" : "").append(hex);
  }
  return escaped;
}

class Writer {
 public:
  template <class... Words>
  void Line(const Words&... words) {
    const char* gap = "";
    ((text.append(gap).append(Word(words)), gap = " "), ...);
    text += '\n';
  }

  std::string Take() { return std::move(text); }

 private:
  static std::string Word(const char* word) { return word; }
  static std::string Word(const std::string& word) { return word; }
  static std::string Word(std::int64_t number) { return std::to_string(number); }
  static std::string Word(std::uint64_t number) { return std::to_string(number); }

  std::string text;
};

void WriteMemory(const Memory& memory, const std::string& prefix, Writer& writer) {
  for (const Pair& pair : memory.pairs) {
    const std::string hash = pair.agreed ? Hex(pair.agreed->hash) : std::string(kNothing);
    const std::uint64_t size = pair.agreed ? pair.agreed->size : 0;
    writer.Line(prefix + (pair.type == EntryType::kFile ? "file" : "folder"), hash, size,
                Escaped(pair.disk), Escaped(pair.host));
  }
  for (const auto& [key, ignored] : memory.ignored) {
    writer.Line(prefix + (ignored.type == EntryType::kFile ? "ignored-file" : "ignored-folder"),
                Hex(ignored.content.hash), ignored.content.size, Escaped(key));
  }
}

// The words of one line, taken one after the other; any word that is not as it should be spoils all
// of it.
class Line {
 public:
  explicit Line(std::string_view text) : rest(text) {}

  std::string_view Word() {
    const std::size_t end = std::min(rest.find(' '), rest.size());
    const std::string_view word = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (word.empty()) sound = false;
    return word;
  }

  template <class Integer>
  Integer Number(int base = 10) {
    const std::string_view word = Word();
    Integer number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, base);
    if (error != std::errc() || end != word.data() + word.size()) sound = false;
    return number;
  }

  std::string Path() {
    const std::string_view word = Word();
    if (word == "%") return {};
    std::string path;
    for (std::size_t i = 0; i < word.size(); ++i) {
      if (word[i] != '%') {
        path += word[i];
        continue;
      }
      unsigned byte = 0;
      const char* digits = word.data() + i + 1;
      if (i + 2 >= word.size() || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
        sound = false;
        return {};
      }
      path += static_cast<char>(byte);
      i += 2;
    }
    return path;
  }

  std::optional<Content> MaybeContent() {
    const bool known = !rest.starts_with("- ");
    Content content;
    if (known) content.hash = Number<std::uint64_t>(16);
    if (!known) Word();
    content.size = Number<std::uint64_t>();
    return known ? std::optional(content) : std::nullopt;
  }

  Stamp TakeStamp() {
    Stamp stamp;
    stamp.identity.device = Number<std::uint64_t>();
    stamp.identity.inode = Number<std::uint64_t>();
    stamp.size = Number<std::uint64_t>();
    stamp.modified = Number<std::int64_t>();
    stamp.changed = Number<std::int64_t>();
    return stamp;
  }

  bool IsSound() const { return sound && rest.empty(); }

 private:
  std::string_view rest;
  bool sound = true;
};

bool ReadMemoryLine(std::string_view kind, Line& line, Memory& memory) {
  if (kind == "file" || kind == "folder") {
    Pair pair{.type = kind == "file" ? EntryType::kFile : EntryType::kFolder};
    pair.agreed = line.MaybeContent();
    pair.disk = line.Path();
    pair.host = line.Path();
    memory.pairs.push_back(std::move(pair));
    return true;
  }
  if (kind == "ignored-file" || kind == "ignored-folder") {
    const auto content = line.MaybeContent();
    const EntryType type = kind == "ignored-file" ? EntryType::kFile : EntryType::kFolder;
    memory.ignored.insert_or_assign(line.Path(), Ignored{type, content.value_or(Content{})});
    return true;
  }
  return false;
}

bool ReadLine(std::string_view text, State& state) {
  constexpr std::string_view kPendingPrefix = "pending-";
  Line line(text);
  const std::string_view kind = line.Word();
  if (kind.starts_with(kPendingPrefix)) {
    return state.pending &&
           ReadMemoryLine(kind.substr(kPendingPrefix.size()), line, state.pending->memory) &&
           line.IsSound();
  }
  if (ReadMemoryLine(kind, line, state.memory)) return line.IsSound();
  if (kind == "host-folder") {
    state.folder.emplace();
    state.folder->device = line.Number<std::uint64_t>();
    state.folder->inode = line.Number<std::uint64_t>();
  } else if (kind == "image") {
    state.image.emplace();
    state.image->volumeId = line.Number<std::uint32_t>(16);
    state.image->stamp = line.TakeStamp();
    state.image->taken = line.Number<std::int64_t>();
  } else if (kind == "seen") {
    SeenFile file;
    file.content.hash = line.Number<std::uint64_t>(16);
    file.stamp = line.TakeStamp();
    file.content.size = file.stamp.size;
    file.taken = line.Number<std::int64_t>();
    state.seen.insert_or_assign(line.Path(), file);
  } else if (kind == "read-in-full") {
    state.lastReadInFull = line.Number<std::int64_t>();
  } else if (kind == "pending") {
    state.pending.emplace();
    state.pending->volumeId = line.Number<std::uint32_t>(16);
    state.pending->tornId = line.Number<std::uint32_t>(16);
    state.pending->wholeImage = line.Path();
  } else {
    return false;
  }
  return line.IsSound();
}

}  // namespace

bool IsTrustworthy(const Stamp& stamp, std::int64_t taken) {
  const std::int64_t latest = std::max(stamp.modified, stamp.changed);
  return latest < taken && taken - latest > kCoarsestTick;
}

std::string FormatState(const State& state) {
  Writer writer;
  if (state.folder) writer.Line("host-folder", state.folder->device, state.folder->inode);
  if (state.image) {
    const Stamp& stamp = state.image->stamp;
    writer.Line("image", Hex(state.image->volumeId), stamp.identity.device, stamp.identity.inode,
                stamp.size, stamp.modified, stamp.changed, state.image->taken);
  }
  if (state.lastReadInFull != 0) writer.Line("read-in-full", state.lastReadInFull);
  WriteMemory(state.memory, "", writer);
  for (const auto& [path, file] : state.seen) {
    writer.Line("seen", Hex(file.content.hash), file.stamp.identity.device,
                file.stamp.identity.inode, file.stamp.size, file.stamp.modified, file.stamp.changed,
                file.taken, Escaped(path));
  }
  if (state.pending) {
    writer.Line("pending", Hex(state.pending->volumeId), Hex(state.pending->tornId),
                Escaped(state.pending->wholeImage));
    WriteMemory(state.pending->memory, "pending-", writer);
  }
  const std::string facts = writer.Take();
  std::string text(kTitle);
  text.append(kChecksum).append(Hex(HashText(facts))).append("\n").append(facts);
  return text;
}

bool ParseState(std::string_view text, State& state, std::string& err) {
  state = State();
  if (!text.starts_with(kTitleOfAnyVersion)) return Fail(err, "it is no state of this program");
  if (!text.starts_with(kTitle)) return Fail(err, "it is of a version that is not known here");
  text.remove_prefix(kTitle.size());
  const std::size_t end = text.find('\n');
  if (!text.starts_with(kChecksum) || end == std::string_view::npos) {
    return Fail(err, "its checksum is missing");
  }
  Line checksum(text.substr(kChecksum.size(), end - kChecksum.size()));
  text.remove_prefix(end + 1);
  if (checksum.Number<std::uint64_t>(16) != HashText(text) || !checksum.IsSound()) {
    return Fail(err, "its checksum is wrong");
  }
  while (!text.empty()) {
    const std::size_t lineEnd = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, lineEnd);
    if (!ReadLine(line, state)) {
      state = State();
      return Fail(err, "it has a line that cannot be read");
    }
    text.remove_prefix(std::min(lineEnd + 1, text.size()));
  }
  return true;
}

}  // namespace quorbix::virtdisk::internal::guard
