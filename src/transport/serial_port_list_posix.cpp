// The device database of this system, read through libudev rather than by
// walking /sys by hand.
#include <libudev.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "transport/serial_port_list.h"

namespace qrx {
namespace {

constexpr const char* kTtySubsystem = "tty";
constexpr std::string_view kByIdFolder = "/dev/serial/by-id/";

struct UdevUnref {
  void operator()(udev* u) const { udev_unref(u); }
  void operator()(udev_enumerate* e) const { udev_enumerate_unref(e); }
  void operator()(udev_device* d) const { udev_device_unref(d); }
};
template <typename T>
using UdevPtr = std::unique_ptr<T, UdevUnref>;

std::string Text(const char* value) {
  return value != nullptr ? value : "";
}

std::string Attribute(udev_device* device, const char* name) {
  return Text(udev_device_get_sysattr_value(device, name));
}

std::string ByIdLink(udev_device* device) {
  for (udev_list_entry* link = udev_device_get_devlinks_list_entry(device); link != nullptr;
       link = udev_list_entry_get_next(link)) {
    const std::string_view name = udev_list_entry_get_name(link);
    if (name.starts_with(kByIdFolder)) return std::string(name);
  }
  return "";
}

// The tty's parent is the port hardware; only a port some driver serves is one.
bool Describe(udev_device* tty, SerialPortInfo& port) {
  udev_device* hardware = udev_device_get_parent(tty);  // owned by tty
  if (hardware == nullptr || udev_device_get_driver(hardware) == nullptr) return false;
  port.device = Text(udev_device_get_devnode(tty));
  if (port.device.empty()) return false;
  port.driver = Text(udev_device_get_driver(hardware));
  port.byId = ByIdLink(tty);
  udev_device* usb = udev_device_get_parent_with_subsystem_devtype(tty, "usb", "usb_device");
  if (usb != nullptr) {
    port.vendorId = Attribute(usb, "idVendor");
    port.productId = Attribute(usb, "idProduct");
    port.manufacturer = Attribute(usb, "manufacturer");
    port.product = Attribute(usb, "product");
    port.serial = Attribute(usb, "serial");
  }
  return true;
}

}  // namespace

SerialPortList ListSerialPorts() {
  SerialPortList list;
  const UdevPtr<udev> context(udev_new());
  if (context == nullptr) {
    list.available = false;
    return list;
  }
  const UdevPtr<udev_enumerate> search(udev_enumerate_new(context.get()));
  if (search == nullptr || udev_enumerate_add_match_subsystem(search.get(), kTtySubsystem) < 0 ||
      udev_enumerate_scan_devices(search.get()) < 0) {
    list.available = false;
    return list;
  }
  for (udev_list_entry* entry = udev_enumerate_get_list_entry(search.get()); entry != nullptr;
       entry = udev_list_entry_get_next(entry)) {
    const UdevPtr<udev_device> tty(
        udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
    SerialPortInfo port;
    if (tty != nullptr && Describe(tty.get(), port)) list.ports.push_back(std::move(port));
  }
  std::sort(list.ports.begin(), list.ports.end(),
            [](const SerialPortInfo& a, const SerialPortInfo& b) { return a.device < b.device; });
  return list;
}

}  // namespace qrx
