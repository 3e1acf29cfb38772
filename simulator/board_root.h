// The directory that stands for the few absolute places the receiver touches, with stand-ins for
// the shell commands that it runs. Thread-bound to its owner, but for command_lines().
#pragma once

#include <string>
#include <vector>

class BoardRoot {
  public:
    // An empty directory name makes one under /tmp. Throws std::system_error where it cannot.
    explicit BoardRoot(const std::string& directory);
    // Removes what was made through this record, and what lies in directories made so.
    ~BoardRoot();
    BoardRoot(const BoardRoot&) = delete;
    BoardRoot& operator=(const BoardRoot&) = delete;

    const std::string& directory() const { return directory_; }

    // Places are absolute, as the receiver names them.
    void make_directory(const std::string& place);
    void write_file(const std::string& place, const std::string& text);
    // modprobe, mount, umount and mkdir, in /bin of the root: each call becomes a line of
    // /commands.log there. mkdir of anything but the gadgetfs mount point is the real one.
    void write_stand_ins();
    std::vector<std::string> command_lines() const;

  private:
    std::string directory_;
    std::vector<std::string> made_;  // oldest first
};
