// Every place of the system that the receiver reads or writes, in one list.
#pragma once

// The device tree's model text, as the firmware wrote it.
inline constexpr char kBoardModelPath[] = "/sys/firmware/devicetree/base/model";

// Small result files for the main application. The directory is made by the system at boot; where
// it is missing, nothing is published.
inline constexpr char kBoardSupportedPath[] = "/run/vantarel/board_supported";
inline constexpr char kVideoWidthPath[] = "/run/vantarel/video_width";
inline constexpr char kVideoHeightPath[] = "/run/vantarel/video_height";

// The one setting that outlives the process.
inline constexpr char kFocusConfigPath[] = "/boot/osmo-usb.conf";

// The boot partition is read-only but for the moment of a save.
inline constexpr char kMakeBootWritable[] = "mount -o rw,remount /boot";
inline constexpr char kUnmountBoot[] = "umount /boot";
inline constexpr char kMountBoot[] = "mount /boot";

// Mount point of the kernel's gadgetfs, and the shell commands that bring it there. Each may fail:
// the module may be built in, the directory or the mount may be there already.
inline constexpr char kGadgetDirectory[] = "/dev/gadget";
inline constexpr const char* kMountGadgetCommands[] = {
    "modprobe gadgetfs > /dev/null 2>&1",
    "mkdir /dev/gadget > /dev/null 2>&1",
    "mount -t gadgetfs none /dev/gadget > /dev/null 2>&1",
};

// POSIX shared-memory objects (seen as /dev/shm/NAME).
inline constexpr char kFrameBufferName[] = "vantarel_framebuffer";
inline constexpr char kTranscodingBufferName[] = "vantarel_framebuffer_transcoding";
inline constexpr char kRcRawName[] = "/shared_rc_raw";
