#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "commands/commands.h"
#include "commands/work_line.h"
#include "common/host_file.h"
#include "host/stop_flag.h"
#include "terminal/columns.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

fs::path StateFolderOf(const RestoreOptions& options) {
  return options.state.empty() ? DefaultStateFolder(options.image) : options.state;
}

std::string ItemLine(const TrashedItem& item) {
  constexpr std::size_t kWhyWidth = 14;
  return Printable(item.id) + "  " + AlignLeft(item.why, kWhyWidth) + "  " + item.side + "  " +
         FormatBytes(item.bytes) + "  " + Printable(item.path);
}

// `restoredTo` is empty where nothing is brought back.
Json ItemObject(const TrashedItem& item, const fs::path& restoredTo) {
  std::string time = item.time;
  std::replace(time.begin(), time.end(), '.', ':');  // as every other time in JSON is written
  return {{"id", item.id},
          {"time", time},
          {"side", item.side},
          {"path", item.path},
          {"why", item.why},
          {"bytes", item.bytes},
          {"restoredTo", restoredTo.empty() ? Json() : Json(restoredTo.string())}};
}

int List(Console& console, const RestoreOptions& options, const std::vector<TrashedItem>& items) {
  for (const TrashedItem& item : items) {
    console.out << (options.json ? OneLine(ItemObject(item, {})) : ItemLine(item)) << "\n";
  }
  if (items.empty() && !options.json) console.out << "The trash is empty.\n";
  return kDone;
}

// Under its old name, unless another was given.
fs::path TargetFor(const RestoreOptions& options, const TrashedItem& item) {
  if (!options.target.empty()) return options.target;
  if (item.side == "disk") return internal::FollowLinks(options.image);
  return options.folder.empty() ? fs::path() : options.folder / item.path;
}

bool CopyOut(Console& console, const RestoreOptions& options, const fs::path& target,
             std::string& err) {
  WorkLine line(console);
  const auto restore = options.force ? RestoreTrashedOver : RestoreTrashed;
  return restore(StateFolderOf(options), options.id, target, err, &StopFlag::Flag(),
                 [&](const GuardedProgress& told) { line.Show(told); });
}

int BringBack(Console& console, const RestoreOptions& options,
              const std::vector<TrashedItem>& items) {
  const auto item = std::find_if(items.begin(), items.end(), [&](const TrashedItem& candidate) {
    return candidate.id == options.id;
  });
  if (item == items.end()) {
    return Fail(console, "the trash holds nothing named " + options.id,
                "`virtdisk restore " + options.image.string() + "` lists what there is.");
  }
  const fs::path target = TargetFor(options, *item);
  if (target.empty()) {
    return Fail(console, "where should " + item->path + " go?",
                "Give --to FILE, or --folder FOLDER for its old name in there.");
  }
  std::error_code unknown;
  const fs::file_status there = fs::symlink_status(target, unknown);
  const bool isTaken = fs::exists(there);
  if (isTaken && !fs::is_regular_file(there) && !fs::is_symlink(there)) {
    return Refuse(console, target.string() + " is no file, and is not replaced",
                  "--to FILE gives it another name.");
  }
  std::string err;
  const StopFlag stop;
  if (!CopyOut(console, options, target, err)) {
    if (StopFlag::IsSet()) return StopFlag::ExitStatus();
    const bool mayReplace = isTaken && !options.force;
    return Fail(console, err,
                mayReplace ? "--force puts what is there into the trash first; --to FILE gives "
                             "it another name."
                           : "--to FILE gives it another name.");
  }
  if (options.json) {
    console.out << OneLine(ItemObject(*item, target)) << "\n";
  } else if (!console.quiet) {
    PrintToOut(console, "Restored " + Printable(target.string()) + ", " + FormatBytes(item->bytes) +
                            "; it stays in the trash as well" +
                            (isTaken ? ", and what was there is in it now.\n" : ".\n"));
  }
  return StopFlag::IsSet() ? StopFlag::ExitStatus() : kDone;
}

}  // namespace

int RunRestore(Console& console, const RestoreOptions& options) {
  std::vector<TrashedItem> items;
  std::string err;
  const fs::path state = StateFolderOf(options);
  std::error_code unknown;
  if (!fs::is_directory(state, unknown)) {
    return Fail(console, "there is no state folder " + state.string(),
                "`virtdisk sync` makes one; --state DIR names another one.");
  }
  if (!ListTrash(state, items, err)) return Fail(console, err);
  return options.id.empty() ? List(console, options, items) : BringBack(console, options, items);
}

}  // namespace quorbix::virtdisk::tool
