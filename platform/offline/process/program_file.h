// Files of programs and libraries, and which of them may run on the host.
//
// The machine's volume may be infected, and what it has would run with the rights of this process.
// Hence nothing on it runs but what lies in the folder that process::TrustFolder named, whatever
// path leads there; unless the host's administrator allowed it, by the environment variable
// TESSEL_RUN_VOLUME_PROGRAMS with the value 1. Scripts can't set that: they change a copy of the
// environment.
#pragma once

#include <cstddef>
#include <string>

#include "platform/error.h"
#include "platform/linux/descriptor.h"

namespace platform::posix {

// A file that was judged, and stays the one that was, whatever becomes of its name.
class ProgramFile {
 public:
  // Opens the file that `path` of the host leads to, and judges it. 193 when it may not run, 5 when
  // it is no regular file or can't be read, else the code of the host's error.
  Code Open(const std::string& path);

  // Up to `size` bytes from the beginning; fewer at the end of the file or after an error.
  std::string Head(std::size_t size) const;

  // Open for reading; a program that is started doesn't get it.
  int Descriptor() const { return file_.Get(); }
  // A path that leads there while the file is open in this process, for the host's calls.
  std::string OpenPath() const;
  // The file's own path, without links. Who could put another file there could as well have changed
  // this one.
  const std::string& Path() const { return path_; }

 private:
  posix::Descriptor file_;
  std::string path_;
};

}  // namespace platform::posix
