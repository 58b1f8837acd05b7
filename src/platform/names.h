#pragma once
// File names that behave as on the original file system: existing names are found whatever
// the letter case asked for; new names are created exactly as asked. Every folder has an index
// of its names, so a lookup in a folder of 50,000 files costs no directory scan. Below the
// installation root the kernel reports every change of an indexed folder (inotify), so its
// index is current without a look at the folder; elsewhere, or without such reports, the
// folder's modification stamp says when the index must be scanned again.

#include <time.h>

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quellor {

// The actual path of an existing file or folder whose path matches `path` without regard to
// letter case, component by component; nullopt when none exists.
std::optional<std::string> ResolveExisting(const std::string& path);
// The path to use for creating or replacing `path`: every existing component in its actual
// case, the rest exactly as asked.
std::string ResolveForCreate(const std::string& path);

// The modification stamp of the folder that holds `path`, taken before our own change of it.
struct timespec FolderStamp(const std::string& path);
// Tells the index that a name appeared in or vanished from a folder through our own call.
// With the stamp taken before the call, the index stays valid without a rescan when nothing
// else changed the folder in between.
void NoteCreated(const std::string& actual_path);
void NoteRemoved(const std::string& actual_path);
void NoteCreated(const std::string& actual_path, const struct timespec& before);
// NoteCreated for a regular file that our own call just created.
void NoteCreatedFile(const std::string& actual_path, const struct timespec& before);
void NoteRemoved(const std::string& actual_path, const struct timespec& before);
// Drops every cached index (tests that change folders behind the program's back).
void ForgetNameIndexes();

// A regular file whose name does not begin with "." (an "ordinary file").
bool OrdinaryFileExists(const std::string& path);
// The same test as a directory search that can fail: raises the classic error when the path
// cannot be searched (a folder on the way that cannot be read, say) instead of answering "no".
bool FindOrdinaryFile(const std::string& path);
// Any existing file (hidden ones included), not a folder.
bool AnyFileExists(const std::string& path);
// An existing folder.
bool FolderExists(const std::string& path);
// Any existing entry (file or folder).
bool PathExists(const std::string& path);

// Ordinary files of `folder` whose names match `pattern` ("*.EML", "20040615*.WAI"),
// case-insensitively, sorted by name (bytes compared with ASCII case folding). Names only.
std::vector<std::string> ListFiles(const std::string& folder, std::string_view pattern);
// The same; false (and nothing listed) when the folder is missing or cannot be read.
bool ListFilesOrFail(const std::string& folder, std::string_view pattern,
                     std::vector<std::string>* listed);
// Case-insensitive match of a name against a pattern with "*" and "?".
bool MatchesPattern(std::string_view name, std::string_view pattern);
// The order of "sorted by name".
bool NameLess(std::string_view a, std::string_view b);
// A-Z lowered, every other byte as it is: the folding of "sorted by name".
std::string AsciiFolded(std::string_view name);
// The order of a listing: NameLess, and names equal but for case by their bytes.
bool ListedBefore(std::string_view a, std::string_view b);

// A single file or folder name taken from mail data is safe when it is not empty, not "." or
// "..", and holds neither "/" nor NUL: it can never leave its folder.
bool SafeName(std::string_view name);

}  // namespace quellor
