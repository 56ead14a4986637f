#ifndef QUORBIX_VIRTDISK_FAT16_FS_IMAGE_H_
#define QUORBIX_VIRTDISK_FAT16_FS_IMAGE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "quorbix/virtdisk/export.h"

namespace quorbix::virtdisk {

// One file or directory of an image, as listing and search return it.
struct Fat16FsEntry {
  std::string name;                // 8.3 name in stored case: base, then "." and extension if any
  std::string path;                // full path in stored case, "/" separated, beginning with "/"
  bool isDirectory = false;        // attribute bit 0x10
  std::uint8_t attributes = 0;     // DIR_Attr, raw
  std::uint32_t size = 0;          // DIR_FileSize in bytes, as stored, also for directories
  std::uint16_t firstCluster = 0;  // DIR_FstClusLO
  std::uint16_t writeTime = 0;     // DIR_WrtTime, raw: hour 15..11, minute 10..5, seconds/2 4..0
  std::uint16_t writeDate = 0;     // DIR_WrtDate, raw: year-1980 15..9, month 8..5, day 4..0
};

// The volume found in an image. Sector numbers count from the start of the image; a sector has
// `bytesPerSector` bytes. The image is not trusted: in an absurd one the derived sectors may be
// sums that wrapped, and reads beyond its end are refused whatever these fields say.
struct Fat16FsInfo {
  bool partitioned = false;                // a partition-table entry was chosen
  std::uint8_t partitionType = 0;          // its type byte, else 0
  std::uint32_t partitionStartLba = 0;     // its first sector, else 0
  std::uint32_t partitionSectorCount = 0;  // its length in sectors, else 0
  std::uint16_t bytesPerSector = 0;        // BPB_BytsPerSec
  std::uint8_t sectorsPerCluster = 0;      // BPB_SecPerClus
  std::uint16_t reservedSectors = 0;       // BPB_RsvdSecCnt
  std::uint8_t fatCount = 0;               // BPB_NumFATs
  std::uint16_t rootEntryCount = 0;        // BPB_RootEntCnt
  std::uint16_t sectorsPerFat = 0;         // BPB_FATSz16
  std::uint32_t totalSectors = 0;          // BPB_TotSec16 when non-zero, else BPB_TotSec32
  std::string fileSystemType;              // BS_FilSysType up to a NUL, trailing blanks removed
  std::string volumeLabel;           // BS_VolLab likewise; when blank, the first label entry met
  std::uint64_t volumeOffset = 0;    // byte offset of the boot sector within the image
  std::uint32_t fatStartSector = 0;  // first FAT
  std::uint32_t rootDirStartSector = 0;  // fixed root directory
  std::uint32_t dataStartSector = 0;     // cluster 2
  std::uint32_t rootDirSectors = 0;      // length of the root directory
};

// A FAT16 disk image held in memory: list it, search it, read its files, overwrite a file in place.
//
// The bytes may come from anywhere: no image makes an operation throw, read or write outside the
// image, or take more work than its size warrants. The object holds its own copy of the bytes and
// never touches a file of the host; a caller keeps a rewrite by writing ImageBytes() out.
// Only memory can run out: results hold full paths, so that a listing or a search in directories
// nested thousands deep can come to gigabytes. std::bad_alloc then leaves the operation, and the
// object can be asked and loaded as before:
//   - LoadFromBytes, while it copies the bytes: the object is as it was, content and index;
//   - LoadFromBytes, while it indexes: the object holds the new bytes and no index: the root is
//     known and empty, and Info() tells what was read up to then;
//   - WriteExistingFile, before it changes the image: the object is as it was;
//   - WriteExistingFile, while it indexes the changed image: as LoadFromBytes does then, but that
//     the file is rewritten;
//   - the const operations: the object is as it was; `results`, `content` and `err` hold anything.
// A small image loaded after a large one gives the large one's memory back.
//
// Paths count from the volume's root. "/" and "\" both separate, runs of them count as one, ASCII
// letter case does not matter, and a leading separator may be missing. "." and ".." have no special
// meaning. When several entries share a path, reading and rewriting mean the first one
// that the walk over the directories meets, and directories are listed as one.
//
// Failing operations return false and put a message into `err`; every operation empties `err`
// first. One object serves one thread at a time, except that const operations may run at the same
// time as each other.
class QUORBIX_VIRTDISK_EXPORT Fat16FsImage {
 public:
  // An empty browser: Info() is all zero and empty, ImageBytes() is empty, no directory is known.
  Fat16FsImage();
  ~Fat16FsImage();
  Fat16FsImage(const Fat16FsImage&) = delete;
  Fat16FsImage& operator=(const Fat16FsImage&) = delete;

  // Copies `image` into this object, replacing what it held, and indexes the FAT16 volume in it:
  // the first of the four primary partitions (type 0x01, 0x04, 0x06 or 0x0E) that starts in it,
  // else a bare volume that begins at byte 0. `image` may be this object's own ImageBytes().
  //
  // On failure `err` is one of
  //   "image too small"                      fewer than 512 bytes
  //   "vbr offset out of range"              the partition's boot sector does not fit the image
  //   "unsupported or invalid FAT16 BPB"
  //   "directory block out of range"         the root directory ends beyond the image
  //   "cluster loop detected"                in a directory's chain, or more slots than fit
  //   "cluster offset out of range"          in a directory's chain
  // and the object holds the new bytes, with the description and the index as far as they came.
  bool LoadFromBytes(const std::vector<std::uint8_t>& image, std::string& err);

  // Returns the description of the volume loaded last. The reference stays valid, and follows
  // later loads and rewrites, for as long as this object lives.
  const Fat16FsInfo& Info() const;

  // Returns the held image, rewrites included. The reference stays valid, and follows later loads
  // and rewrites, for as long as this object lives.
  const std::vector<std::uint8_t>& ImageBytes() const;

  // Replaces `results` by the direct children of the directory `path`: directories first, then
  // files, each in byte-wise order of their paths.
  //
  // On failure `results` is empty and `err` is "directory not found" (also when `path` names a
  // file, or nothing was ever loaded). `path` may be a string inside `results`.
  bool ListDirectory(const std::string& path, std::vector<Fat16FsEntry>& results,
                     std::string& err) const;

  // Replaces `results` by every file and directory whose path contains `query`, ASCII letter case
  // aside, in byte-wise order of their paths. The query is used as it is: it is no path.
  // No match is a success with no results.
  //
  // On failure `results` is empty and `err` is "empty query". `query` may be a string inside
  // `results`.
  bool Search(const std::string& query, std::vector<Fat16FsEntry>& results, std::string& err) const;

  // Replaces `content` by the bytes of the file `path`: at most the entry's size, fewer when its
  // cluster chain ends early.
  //
  // On failure `content` is empty and `err` is one of
  //   "file not found"
  //   "path is a directory"
  //   "cluster loop detected"
  //   "cluster offset out of range"
  bool ReadFile(const std::string& path, std::vector<std::uint8_t>& content,
                std::string& err) const;

  // Replaces the content of the existing file `path` inside the held image.
  //
  // The file keeps the clusters it owns: content may grow into their slack and not beyond, and what
  // it leaves of them is filled with zeros. However many clusters they are, content has at most
  // 4,294,967,295 bytes: the entry's size field can say no more. The size is updated; dates,
  // attributes and the FATs are not. The volume is then indexed anew.
  //
  // On failure `err` is one of
  //   "file not found"
  //   "path is a directory"
  //   "new file content exceeds allocated cluster chain"   or 4,294,967,295 bytes
  //   "file has no allocated cluster chain"
  //   "cluster loop detected"
  //   "cluster offset out of range"
  // with the image unchanged, or a message of LoadFromBytes when the image, already rewritten, can
  // not be indexed again.
  bool WriteExistingFile(const std::string& path, const std::vector<std::uint8_t>& newContent,
                         std::string& err);

 private:
  struct QUORBIX_VIRTDISK_HIDDEN Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace quorbix::virtdisk

#endif  // QUORBIX_VIRTDISK_FAT16_FS_IMAGE_H_
