#include "usb/usb_link_state.h"

UsbLinkState usb_link;
