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

// Mount point of the kernel's gadgetfs.
inline constexpr char kGadgetDirectory[] = "/dev/gadget";

// POSIX shared-memory objects (seen as /dev/shm/NAME).
inline constexpr char kFrameBufferName[] = "vantarel_framebuffer";
inline constexpr char kTranscodingBufferName[] = "vantarel_framebuffer_transcoding";
