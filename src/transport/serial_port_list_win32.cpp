// The device-setup database of this system: every present device of the
// Ports class that has a COM name, with what the database knows of it.
#include <windows.h>
// After windows.h, which they need.
#include <devguid.h>
#include <setupapi.h>

#include <string>

#include "transport/serial_port_list.h"

namespace qrx {
namespace {

constexpr std::wstring_view kComPrefix = L"COM";
constexpr const wchar_t* kPortNameValue = L"PortName";
// Where the serial drivers publish their COM names, device name to COM name.
constexpr const wchar_t* kSerialCommKey = L"HARDWARE\\DEVICEMAP\\SERIALCOMM";
constexpr DWORD kTextChars = 512;

std::string Narrow(const std::wstring& wide) {
  if (wide.empty()) return "";
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<size_t>(bytes > 0 ? bytes : 1), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, text.data(), bytes, nullptr, nullptr);
  text.resize(text.find('\0'));
  return text;
}

// A registry text value; empty when absent or not text.
std::wstring RegistryText(HKEY key, const wchar_t* name) {
  wchar_t text[kTextChars] = {};
  DWORD type = 0;
  DWORD bytes = sizeof(text) - sizeof(wchar_t);
  if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &bytes) !=
          ERROR_SUCCESS ||
      type != REG_SZ) {
    return L"";
  }
  return text;
}

// A device property as text; a list (the hardware ids) gives its first entry.
std::wstring Property(HDEVINFO devices, SP_DEVINFO_DATA& device, DWORD property) {
  wchar_t text[kTextChars] = {};
  if (!SetupDiGetDeviceRegistryPropertyW(devices, &device, property, nullptr,
                                         reinterpret_cast<BYTE*>(text),
                                         sizeof(text) - 2 * sizeof(wchar_t), nullptr)) {
    return L"";
  }
  return text;
}

void AddFromDeviceSetup(std::vector<SerialPortInfo>& ports) {
  const HDEVINFO devices =
      SetupDiGetClassDevsW(&GUID_DEVCLASS_PORTS, nullptr, nullptr, DIGCF_PRESENT);
  if (devices == INVALID_HANDLE_VALUE) return;
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  for (DWORD index = 0; SetupDiEnumDeviceInfo(devices, index, &device); ++index) {
    const HKEY key =
        SetupDiOpenDevRegKey(devices, &device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ);
    if (key == INVALID_HANDLE_VALUE) continue;
    const std::wstring name = RegistryText(key, kPortNameValue);
    RegCloseKey(key);
    if (!name.starts_with(kComPrefix)) continue;  // a printer port, say
    SerialPortInfo port;
    port.device = Narrow(name);
    port.driver = Narrow(Property(devices, device, SPDRP_SERVICE));
    port.manufacturer = Narrow(Property(devices, device, SPDRP_MFG));
    port.product = Narrow(Property(devices, device, SPDRP_FRIENDLYNAME));
    const UsbIds usb = UsbIdsFromHardwareId(Narrow(Property(devices, device, SPDRP_HARDWAREID)));
    port.vendorId = usb.vendorId;
    port.productId = usb.productId;
    ports.push_back(port);
  }
  SetupDiDestroyDeviceInfoList(devices);
}

// Wine registers no Ports-class devices for the COM ports it maps to the
// host's serial devices, but publishes them here, as Windows does for every
// port a serial driver serves: the device name (\Device\Serial0) to its COM name.
void AddFromSerialComm(std::vector<SerialPortInfo>& ports) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSerialCommKey, 0, KEY_READ, &key) != ERROR_SUCCESS) return;
  for (DWORD index = 0;; ++index) {
    wchar_t deviceName[kTextChars] = {};
    wchar_t comName[kTextChars] = {};
    DWORD nameChars = kTextChars;
    DWORD type = 0;
    DWORD bytes = sizeof(comName) - sizeof(wchar_t);
    const LONG result = RegEnumValueW(key, index, deviceName, &nameChars, nullptr, &type,
                                      reinterpret_cast<BYTE*>(comName), &bytes);
    if (result == ERROR_NO_MORE_ITEMS) break;
    if (result != ERROR_SUCCESS || type != REG_SZ) continue;
    SerialPortInfo port;
    port.device = Narrow(comName);
    ports.push_back(port);
  }
  RegCloseKey(key);
}

}  // namespace

SerialPortList ListSerialPorts() {
  SerialPortList list;
  AddFromDeviceSetup(list.ports);
  if (list.ports.empty()) AddFromSerialComm(list.ports);
  SortByPortNumber(list.ports);
  return list;
}

}  // namespace qrx
