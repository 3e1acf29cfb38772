// A directory under /tmp that stands for the board's file system while a test runs, with stand-ins
// for the shell commands that the receiver starts.
//
// The path mapping itself is the simulator library's: a test that uses this links gadgetfs-sim.
#pragma once

#include <string>
#include <vector>

class TemporaryRoot {
  public:
    // Makes the directories of the places that the receiver uses, and sets PATH and the mapping's
    // variable for this process.
    TemporaryRoot();
    // Puts the environment back and removes the directory.
    ~TemporaryRoot();
    TemporaryRoot(const TemporaryRoot&) = delete;
    TemporaryRoot& operator=(const TemporaryRoot&) = delete;

    // Where an absolute place stands, e.g. "/boot/osmo-usb.conf".
    std::string path(const std::string& place) const;
    void write(const std::string& place, const std::string& text) const;
    std::string read(const std::string& place) const;
    bool exists(const std::string& place) const;
    // A place's directory or file with all that is below it.
    void remove(const std::string& place) const;

    // Command lines that met a stand-in, oldest first, e.g. "mount /boot".
    std::vector<std::string> shell_commands() const;
    // From now on each stand-in runs this line of shell after it has noted its command.
    void after_each_command(const std::string& shell_line) const;

    // Whether a program of this process that opens an absolute place gets the one under the root.
    // A test that writes to such places checks it first.
    static bool maps_places();

  private:
    void write_stand_in(const std::string& name) const;

    std::string root_;
    std::string path_before_;
};
