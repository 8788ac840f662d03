// File-system steps shared by the library's readers and writers. Each returns
// false on failure; the caller records the error state, since only it knows
// what the failure means.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

namespace velasystemd {

// Mode of every directory the library creates.
constexpr mode_t DIRECTORY_MODE = 0755;
// Mode of every file the library creates.
constexpr mode_t FILE_MODE = 0644;

// Reads the regular file at `path` (a link is followed) into `text`. Fails on
// anything else, such as a FIFO that would block, or a file over `max_size`.
// A relative `path` is taken from the directory open as `directory_fd`.
bool ReadRegularFile(const char* path, size_t max_size, std::string& text,
                     int directory_fd = AT_FDCWD);

// Creates directory `path` and its missing parents; one that exists already,
// perhaps just made by another process, is fine.
bool MakeDirectories(const std::string& path);

// The target of the symbolic link `path`.
bool ReadLinkTarget(const std::string& path, std::string& target);

// Creates the symbolic link `link` -> `target`; an existing link with that
// same target is fine, anything else at `link` is a failure (EEXIST).
bool MakeLinkOnce(const std::string& target, const std::string& link);

// Creates an empty file at `path` unless something is there already; never
// follows a link and never truncates.
bool TouchFile(const std::string& path);

// Writes `text` to `path` whole: a reader sees the old file or the new one,
// never a part. The temporary file lies beside `path`, so that several
// processes writing different files in one directory never meet.
bool ReplaceFile(const std::string& path, const std::string& text);

}  // namespace velasystemd
