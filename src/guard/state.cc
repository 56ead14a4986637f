#include "guard/state.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

#include "common/fail.h"
#include "guard/lines.h"
#include "guard/paths.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::string_view kTitle = "virtdisk sync state 1\n";
constexpr std::string_view kTitleOfAnyVersion = "virtdisk sync state ";
constexpr std::string_view kNothing = "-";
constexpr std::string_view kTrashBeforeLine = "trash-before-pending";

constexpr std::size_t kLongestShortName = 12;  // as it is listed: "LONG_NAM.TXT"

// Some file systems tell times to two seconds only.
constexpr std::int64_t kCoarsestTick = 2'000'000'000;

void WriteMemory(const Memory& memory, const std::string& prefix, LineWriter& writer) {
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

std::optional<Content> MaybeContent(Line& line) {
  const std::string_view hash = line.Peek();
  if (hash != kNothing) {
    const auto number = line.Number<std::uint64_t>(16);
    return Content{number, line.Number<std::uint64_t>()};
  }
  line.Word();
  line.Number<std::uint64_t>();
  return std::nullopt;
}

// A pass removes that file, or writes over the image from it: none but its own will do.
bool IsWholeImageName(const std::string& name) {
  return name.empty() || (IsOwnTemporaryName(name) && name.find('/') == std::string_view::npos);
}

bool ReadMemoryLine(std::string_view kind, Line& line, Memory& memory) {
  if (kind == "file" || kind == "folder") {
    Pair pair{.type = kind == "file" ? EntryType::kFile : EntryType::kFolder};
    pair.agreed = MaybeContent(line);
    pair.disk = line.Path();
    pair.host = line.Path();
    const bool isInside = StaysInside(pair.disk) && StaysInside(pair.host);
    memory.pairs.push_back(std::move(pair));
    return isInside;
  }
  if (kind == "ignored-file" || kind == "ignored-folder") {
    const auto content = MaybeContent(line);
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
    state.image->stamp = TakeStamp(line);
    state.image->taken = line.Number<std::int64_t>();
    state.image->isAsRemembered = line.Number<unsigned>() != 0;
  } else if (kind == "seen") {
    SeenFile file;
    file.content.hash = line.Number<std::uint64_t>(16);
    file.stamp = TakeStamp(line);
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
    if (!IsWholeImageName(state.pending->wholeImage)) return false;
  } else if (kind == kTrashBeforeLine && state.pending) {
    state.pending->trashBefore = line.Path();
  } else {
    return false;
  }
  return line.IsSound();
}

// A plan from anything else could not be carried out.
bool IsPossible(const Memory& memory, std::string& err) {
  std::set<std::string> hosts;
  std::set<std::string> disks;
  for (const Pair& pair : memory.pairs) {
    if (!hosts.insert(pair.host).second || !disks.insert(DiskKey(pair.disk)).second) {
      return Fail(err, "it names something twice");
    }
    if (NameOf(pair.disk).size() > kLongestShortName) {
      return Fail(err, "it has a name that no disk has");
    }
  }
  return true;
}

}  // namespace

bool IsTrustworthy(const Stamp& stamp, std::int64_t taken) {
  const std::int64_t latest = std::max(stamp.modified, stamp.changed);
  return latest < taken && taken - latest > kCoarsestTick;
}

Stamp TakeStamp(Line& line) {
  Stamp stamp;
  stamp.identity.device = line.Number<std::uint64_t>();
  stamp.identity.inode = line.Number<std::uint64_t>();
  stamp.size = line.Number<std::uint64_t>();
  stamp.modified = line.Number<std::int64_t>();
  stamp.changed = line.Number<std::int64_t>();
  return stamp;
}

std::string FormatState(const State& state) {
  LineWriter writer;
  if (state.folder) writer.Line("host-folder", state.folder->device, state.folder->inode);
  if (state.image) {
    const Stamp& stamp = state.image->stamp;
    writer.Line("image", Hex(state.image->volumeId), stamp.identity.device, stamp.identity.inode,
                stamp.size, stamp.modified, stamp.changed, state.image->taken,
                std::uint64_t{state.image->isAsRemembered});
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
    if (!state.pending->trashBefore.empty()) {
      writer.Line(std::string(kTrashBeforeLine), Escaped(state.pending->trashBefore));
    }
    WriteMemory(state.pending->memory, "pending-", writer);
  }
  return Sealed(kTitle, writer.Take());
}

bool ParseState(std::string_view text, State& state, std::string& err) {
  state = State();
  if (!text.starts_with(kTitleOfAnyVersion)) return Fail(err, "it is no state of this program");
  if (!text.starts_with(kTitle)) return Fail(err, "it is of a version that is not known here");
  text.remove_prefix(kTitle.size());
  if (!TakeSeal(text, err)) return false;
  while (!text.empty()) {
    if (ReadLine(TakeLine(text), state)) continue;
    state = State();
    return Fail(err, "it has a line that cannot be read");
  }
  if (IsPossible(state.memory, err) && (!state.pending || IsPossible(state.pending->memory, err))) {
    return true;
  }
  state = State();
  return false;
}

}  // namespace quorbix::virtdisk::internal::guard
