#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "browser/file_source.h"
#include "browser/rewrite_plan.h"
#include "browser/volume_index.h"
#include "commands/commands.h"
#include "common/divide_up.h"
#include "common/host_file.h"
#include "disk/file_rewrite.h"
#include "disk/opened_image.h"
#include "disk/shown_source.h"
#include "host/host_file.h"
#include "host/new_file.h"
#include "host/output_place.h"
#include "host/piecewise.h"
#include "host/stop_signals.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/progress.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using Clock = std::chrono::steady_clock;

// Of a signal, for the end of what is being written in place.
constexpr std::chrono::milliseconds kLongestWait{700};

// The volume of an image, indexed without loading it.
struct IndexedImage {
  std::unique_ptr<internal::FileSource> source;
  std::unique_ptr<ShownSource> shown;
  std::unique_ptr<internal::VolumeIndex> index;

  bool Open(Console& console, const fs::path& image, std::string& err) {
    index.reset();  // each reads from the one above
    shown.reset();
    source = internal::FileSource::Open(image, err);
    if (!source) return false;
    shown = std::make_unique<ShownSource>(console, *source);
    index = std::make_unique<internal::VolumeIndex>(*shown);
    const bool isParsed = index->Parse(err);
    shown->Finish();
    return isParsed;
  }
};

std::uint64_t BytesOf(const std::vector<ByteRun>& runs) {
  return std::accumulate(runs.begin(), runs.end(), std::uint64_t{0},
                         [](std::uint64_t bytes, const ByteRun& run) { return bytes + run.bytes; });
}

// What writing to a file would do to others, as what is to be said of the file; null: nothing.
const char* HarmOf(const internal::VolumeIndex& index, const internal::RewritePlan& plan) {
  if (WritesOutside(index, plan)) return "has clusters outside of the volume";
  if (!WritesOverOthers(index, plan)) return nullptr;
  return "shares clusters with another file, a directory or a lost chain";
}

class Rewrite {
 public:
  Rewrite(Console& theConsole, const PutOptions& theOptions)
      : console(theConsole), options(theOptions), target(internal::FollowLinks(theOptions.image)) {}

  int Run() {
    std::uint64_t newBytes = 0;
    if (!HostFileBytes(options.file, newBytes, err)) return FailToRead();
    if (LookAtOutput(target) == OutputKind::kNoRegularFile) {
      return Refuse(console, options.image.string() + " is no regular file",
                    "Write to a copy of it, and copy that back.");
    }
    int status = kFailed;
    const auto image = OpenedImage::Open(
        console, options.image, {.force = options.force, .hidden = true, .whole = true}, status);
    if (!image) return status;
    if (!options.inPlace && !options.force && IsDenied(target, W_OK)) {
      return Refuse(console, target.string() + " is write-protected",
                    "--force replaces it all the same.");
    }
    internal::RewritePlan plan;
    if (!internal::PlanRewrite(image->Index(), options.path, newBytes, plan, err)) {
      return Fail(console, err, HintFor(image->Index(), newBytes));
    }
    const char* harm = options.force ? nullptr : HarmOf(image->Index(), plan);
    if (harm != nullptr) {
      return Refuse(console, Within(options.path, options.image) + " " + harm,
                    "`virtdisk verify` tells more; --force writes all the same.");
    }
    const std::uint64_t room = BytesOf(RunsOf(plan.chain, image->Index().Chains()));
    // One byte more tells that there are too many.
    if (!ReadContent(newBytes, room + 1)) return FailToRead();
    if (!internal::PlanRewrite(image->Index(), options.path, content.size(), plan, err)) {
      return Fail(console, err,
                  options.file.string() + " has more than the " + Count(room, "byte", "bytes") +
                      " that " + Within(options.path, options.image) +
                      " has room for. Build the image again to let it grow.");
    }
    return options.inPlace ? WriteInPlace() : WriteCopy(image->Bytes());
  }

 private:
  // Before anything is written: what may be slow, or fail, is over by then.
  bool ReadContent(std::uint64_t bytes, std::uint64_t most) {
    Progress progress(console, "reading", bytes);
    const auto moved = [&](std::uint64_t n) { progress.Add(n); };
    return ReadHostFile(options.file, content, err, moved, most);
  }

  int WriteCopy(std::uint64_t imageBytes) {
    NewFile copy;
    const bool isDone = copy.Create(target, err) && CopyTo(copy, imageBytes) &&
                        RewriteIn(copy.PathSoFar(), copy.Descriptor()) && copy.Commit(err);
    if (copy.Error() != 0) error = copy.Error();
    return isDone ? Done() : FailToWrite();
  }

  bool CopyTo(const NewFile& copy, std::uint64_t imageBytes) {
    const internal::Descriptor from = internal::OpenHostFile(target.c_str(), O_RDONLY);
    Progress progress(console, "copying", imageBytes);
    const auto moved = [&](std::uint64_t bytes) { progress.Add(bytes); };
    return (from && CopyInPieces(from.Get(), copy.Descriptor(), imageBytes, moved)) || FailToCopy();
  }

  int WriteInPlace() {
    struct ::stat status {};
    const internal::Descriptor image = internal::OpenHostFile(target.c_str(), O_RDWR | O_NOFOLLOW);
    const bool isRegular = image && ::fstat(image.Get(), &status) == 0 && S_ISREG(status.st_mode);
    if (!isRegular) {
      FailToWriteFile(err, target, image ? kNotRegular : SystemText(errno));
      return FailToWrite();
    }
    return RewriteIn(target, image.Get()) && Flush(image.Get()) ? Done() : FailToWrite();
  }

  // Plans once more, for what is written to, and sees afterwards whether it is still a volume:
  // files of a damaged one may lie where it keeps itself.
  bool RewriteIn(const fs::path& path, int file) {
    IndexedImage image;
    internal::RewritePlan plan;
    if (!image.Open(console, path, err) ||
        !internal::PlanRewrite(*image.index, options.path, content.size(), plan, err)) {
      return false;
    }
    const std::vector<ByteRun> runs = RunsOf(plan.chain, image.index->Chains());
    const std::uint64_t clusterBytes = image.index->Chains().ClusterBytes();
    spareClusters = plan.chain.size() - internal::DivideUp(content.size(), clusterBytes);
    return (MakeRoomFor(file, runs, plan.sizeOffset) || FailAtTarget()) &&
           Write(file, runs, plan.sizeOffset) && image.Open(console, path, err);
  }

  // The old content lies where the new one goes: once it is written over, the only way not to leave
  // half of each is to go on, and a signal waits for that, but not for long.
  bool Write(int file, const std::vector<ByteRun>& runs, std::uint64_t sizeOffset) {
    std::optional<SignalsHeld> held;
    std::optional<LastWords> words;
    std::optional<Clock::time_point> asked;
    if (options.inPlace) {
      held.emplace();
      words.emplace(FailureText(console, HalfWritten()));
    }
    Progress progress(console, "writing", BytesOf(runs));
    isTouched = true;
    const auto moved = [&](std::uint64_t bytes) {
      if (held && SignalsHeld::IsAnyWaiting()) {
        asked = asked.value_or(Clock::now());
        if (Clock::now() - *asked > kLongestWait) held.reset();  // and so it comes
        progress.Rename("ending when it is written");
      }
      progress.Add(bytes);
    };
    return WriteRuns(file, runs, sizeOffset, content, moved) || FailAtTarget();
  }

  std::string HalfWritten() const {
    return Within(options.path, options.image) + " may be half written; put it again";
  }

  bool Flush(int file) { return ::fsync(file) == 0 || FailAtTarget(); }

  int Done() {
    if (spareClusters != 0) {
      Remark(console, Within(options.path, options.image) + " keeps " +
                          Count(spareClusters, "cluster", "clusters") +
                          " more than it needs, which checkers of disks call a fault");
    }
    if (!options.json) return kDone;
    console.out << OneLine({{"image", options.image.string()},
                            {"path", options.path},
                            {"bytes", content.size()}})
                << "\n";
    return kDone;
  }

  bool FailAtTarget() {
    error = errno;
    return FailToWriteFile(err, target, SystemText(error));
  }

  bool FailToCopy() {
    error = errno;
    err = "cannot copy " + target.string() + ": " + SystemText(error);
    return false;
  }

  int FailToRead() { return Fail(console, err, "Give the path of the file with the new content."); }

  int FailToWrite() {
    if (options.inPlace && isTouched) {
      return Fail(console, err, HalfWritten() + ".");
    }
    return Fail(console, err,
                "Nothing was written to " + options.image.string() + "." +
                    (options.inPlace ? "" : InPlaceHint(target, error, 0)));
  }

  std::string HintFor(const internal::VolumeIndex& index, std::uint64_t newBytes) const {
    const std::string what = Within(options.path, options.image);
    std::string ignored;
    const internal::EntryRecord* file = index.FindFile(options.path, ignored);
    if (file != nullptr && newBytes > file->MostContent()) {
      return options.file.string() + " has " + Count(newBytes, "byte", "bytes") + ", and " + what +
             " has room for " + GroupDigits(file->MostContent()) +
             ". Build the image again to let it grow.";
    }
    if (err == "file not found") {
      return what + ": put replaces the content of a file that exists; `virtdisk ls` shows them.";
    }
    return what + " was not changed.";
  }

  Console& console;
  const PutOptions& options;
  const fs::path target;  // behind links to it
  std::vector<std::uint8_t> content;
  std::string err;
  std::uint64_t spareClusters = 0;
  bool isTouched = false;
  int error = 0;  // errno of what failed
};

}  // namespace

int RunPut(Console& console, const PutOptions& options) {
  if (options.path.empty()) return FailAsEmpty(console, "PATH");
  if (options.file == "-") {
    return FailUsage(console, "`put` reads a file, not the standard input",
                     "Give its path; ./- is a file of that name.");
  }
  return Rewrite(console, options).Run();
}

}  // namespace quorbix::virtdisk::tool
