#ifndef QUORBIX_VIRTDISK_TOOL_MAP_HTML_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_HTML_H_

#include <string>
#include <string_view>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

// How every page begins, now and later: who replaces one knows it by that.
inline constexpr std::string_view kHtmlBeginning = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="generator" content="virtdisk map">
)";

// The disk as a page that needs nothing beside itself: its picture, and a list of its files to
// search. A cell tells its file and a file lights its cells, with the mouse and with the keyboard,
// and both are told to a screen reader. `#/PATH` behind its address chooses a file. Without
// scripts, the picture with its texts on hover is left.
std::string DrawHtml(const DiskMap& map, const std::string& title, const std::string& subtitle);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_HTML_H_
