// Files and folders: replacing one as a whole, making new ones, and names for them.
#pragma once

#include <string>
#include <string_view>

// What the controller writes (recordings, pictures, talks) is for its user and group only; a stricter umask
// holds.
inline constexpr unsigned PRIVATE_FILE_MODE = 0640, PRIVATE_FOLDER_MODE = 0750;

// Writes `bytes` beside `path` (its name with ".tmp"), then renames it over `path`: a reader, a crash or a full
// disk sees the old content or the new one. `durable`: survives power loss too (fsync of file and folder).
// False with a reason, and the old file untouched.
bool ReplaceFile(const std::string& path, std::string_view bytes, unsigned mode, bool durable,
                 std::string* error);

// Creates an empty file that was not there before, not even as a link, with the private mode. The descriptor is
// the caller's; -1 with a reason.
int CreateFile(const std::string& path, std::string* error);

// Creates a folder and the missing ones above it, with the private mode. False with a reason.
bool MakeFolder(const std::string& path, std::string* error);

// `name` as a part of a file name: letters, digits, '.', '_' and '-', everything else '-'; never empty or
// hidden.
std::string SafeFileName(std::string_view name);

// A path that does not exist yet: `stem`, the present time in UTC ("-20261123-081530-125Z"), and `ending`,
// which has its dot. Names of one stem sort by time.
std::string NewFilePath(const std::string& stem, const char* ending);
