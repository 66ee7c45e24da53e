#include "VDPOutputDirectoryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

VDPOutputDirectoryLock::VDPOutputDirectoryLock(const std::string& directory)
    : _fileDescriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (_fileDescriptor < 0) {
    return;
  }
  while (flock(_fileDescriptor, LOCK_EX) != 0 && errno == EINTR) {
  }
}

VDPOutputDirectoryLock::~VDPOutputDirectoryLock() {
  if (_fileDescriptor >= 0) {
    close(_fileDescriptor);  // releases the lock
  }
}
