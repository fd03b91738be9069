#pragma once
// The firmware's control device ("\\.\ZLTACPI"): opened as a file, spoken to with one
// device I/O control code that carries ACPI method calls.

#include <cstdint>
#include <memory>
#include <string>

namespace zaltor::platform {

class ControlDeviceHandle {
 public:
  virtual ~ControlDeviceHandle() = default;
  // One synchronous request: sends in[0..in_len) and receives at most out_capacity bytes.
  // Returns false when the request failed; `returned` is the count of bytes written to out.
  virtual bool io_control(uint32_t code, const uint8_t* in, uint32_t in_len, uint8_t* out,
                          uint32_t out_capacity, uint32_t& returned) = 0;
};

class ControlDevice {
 public:
  virtual ~ControlDevice() = default;
  // Opens the device for read and write, shared read and write, open-existing.
  // Null with `error` set (the system's error code) when it cannot be opened.
  virtual std::unique_ptr<ControlDeviceHandle> open(const std::string& path, uint32_t& error) = 0;
};

}  // namespace zaltor::platform
