// Files and folders: replacing one as a whole, and names for new ones.
#pragma once

#include <string>
#include <string_view>

// Writes `bytes` beside `path` (its name with ".tmp"), then renames it over `path`: a reader, a crash or a full
// disk sees the old content or the new one. `durable`: survives power loss too (fsync of file and folder).
// False with a reason, and the old file untouched.
bool ReplaceFile(const std::string& path, std::string_view bytes, unsigned mode, bool durable,
                 std::string* error);

// Creates a folder and the missing ones above it. False with a reason.
bool MakeFolder(const std::string& path, std::string* error);

// `name` as a part of a file name: letters, digits, '.', '_' and '-', everything else '-'; never empty or
// hidden.
std::string SafeFileName(std::string_view name);

// A path that does not exist yet: `stem`, the present time, and `ending`, which has its dot.
std::string NewFilePath(const std::string& stem, const char* ending);
