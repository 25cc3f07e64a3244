// Names of devices, the list of the host's devices, registered drivers, and the handles that are handed out.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <fstream>

#include "device/device.h"
#include "platform/posix/device_list.h"
#include "support/scripted_driver.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
namespace names = brisolt::deviceNames;
using brisolt::Device;

TEST(DeviceNames, ResolvesPortNamesAndNothingElse) {
    ASSERT_EQ(names::map(7, "/tmp/bench"), 1);
    for (const char* name : {"COM7", "com7", "\\\\.\\COM7", "\\\\.\\Com7"})
        EXPECT_EQ(names::resolve(name), "/tmp/bench") << name;
    EXPECT_EQ(names::resolve("COM7?dtr=off"), "/tmp/bench?dtr=off");
    for (const char* name : {"COM", "\\\\.\\COM", "COM0", "COM257", "COM07", "COM7x", "COM1000", "CO7",
                             "/dev/ttyUSB0", "null-modem:COM7", ""})
        EXPECT_EQ(names::resolve(name), name);
    EXPECT_EQ(names::map(256, "loop:last?paced"), 1);
    EXPECT_EQ(names::resolve("COM256?dtr=off"), "loop:last?paced&dtr=off");
    EXPECT_EQ(names::map(256, ""), 1);
    const bool linked = fs::exists("/dev/com256");
    EXPECT_EQ(names::resolve("COM256"), linked ? "/dev/com256" : "/dev/ttyS255");
}

TEST(DeviceNames, MappingsHaveALimitAndRefusedOnesChangeNothing) {
    const std::string longest(259, 'x');
    ASSERT_EQ(names::map(3, longest.c_str()), 1);
    EXPECT_EQ(names::map(3, (longest + 'x').c_str()), -1);
    EXPECT_EQ(names::resolve("COM3"), longest);
    char buffer[9] = "12345678";
    EXPECT_EQ(ComHostGetDevicePath(3, buffer, 8), 259);
    EXPECT_STREQ(buffer, "xxxxxxx");
    EXPECT_EQ(ComHostGetDevicePath(3, buffer, 0), -1);
    for (const int32_t none : {-1, 100000})
        EXPECT_EQ(ComHostGetDevice(none, nullptr, 0, nullptr, 0), 0);
}

// Of a tree like the kernel's, with UARTs, one of them absent, a USB converter and a console.
TEST(DeviceList, ListsWhatHasADeviceInNaturalOrder) {
    const brisolt::test::TempDir directory;
    const fs::path& root = directory.path();
    const auto addDevice = [&root](const char* name, const fs::path& device, const char* driver) {
        for (const auto& folder :
             {root / "class" / name, root / "devices" / device, root / "drivers" / driver})
            fs::create_directories(folder);
        fs::create_symlink(root / "devices" / device, root / "class" / name / "device");
        fs::create_symlink(root / "drivers" / driver, root / "devices" / device / "driver");
    };
    addDevice("ttyS10", "uart1", "8250_pci");
    addDevice("ttyS2", "uart2", "8250_pci");
    addDevice("ttyS0", "uart3", "serial8250");
    addDevice("ttyUSB0", "usb1/interface/ttyUSB0", "ftdi_sio");
    addDevice("card!0!ttyX", "card", "cards");
    for (const auto& [file, text] : {std::pair{"class/ttyS0/type", "0"},
                                     {"class/ttyS2/type", "4"},
                                     {"devices/usb1/idVendor", "1234"},
                                     {"devices/usb1/product", "Converter"},
                                     {"devices/usb1/serial", "A1"}})
        std::ofstream(root / file) << text << '\n';
    addDevice("ttyS3", "chip/chip:0/chip:0.0", "port"); // below two levels of the kernel's own
    for (const char* folder : {"bus/serial-base", "drivers/dw-apb-uart", "class/tty1"})
        fs::create_directories(root / folder);
    for (const char* level : {"chip/chip:0", "chip/chip:0/chip:0.0"})
        fs::create_symlink(root / "bus/serial-base", root / "devices" / level / "subsystem");
    fs::create_symlink(root / "drivers/dw-apb-uart", root / "devices/chip/driver");

    using Devices = std::vector<std::pair<std::string, std::string>>;
    const Devices expected{
        {"/dev/card/0/ttyX", "cards"}, // as the kernel writes a name with directories in it
        {"/dev/ttyS2", "8250_pci"},
        {"/dev/ttyS3", "dw-apb-uart"},
        {"/dev/ttyS10", "8250_pci"},
        {"/dev/ttyUSB0", "Converter A1 (ftdi_sio)"}};
    Devices listed;
    const auto found = brisolt::serial::listBelow(root / "class").value();
    for (const auto& device : found)
        listed.emplace_back(device.path, device.description);
    EXPECT_EQ(listed, expected);
    EXPECT_TRUE(brisolt::serial::listBelow(root / "absent").value().empty());
}

namespace {

std::string opened; ///< the path of the last open

/// A driver with the least that one needs, which tells of more bytes than it was asked for.
ComHostDriver leastDriver() {
    ComHostDriver driver{};
    driver.size = sizeof driver;
    driver.open = [](void*, const char* path, void** device, int32_t*) {
        opened = path;
        *device = &opened;
        return 1;
    };
    driver.close = [](void*) {};
    driver.read = [](void*, void*, int32_t count) { return count + 5; };
    driver.write = [](void*, const void*, int32_t count, uint32_t, int32_t*) { return count + 5; };
    return driver;
}

} // namespace

TEST(DeviceDrivers, OpenBySchemeWhateverItsCaseAndBadOnesAreRefused) {
    ComHostDriver driver = leastDriver();
    for (const char* scheme :
         {"", "x", "NULL-Modem", "loop", "a b", "/dev/x", "abcdefghijklmnopqrstuvwxyz123456"})
        EXPECT_EQ(ComHostRegisterDriver(scheme, &driver), -1) << scheme;
    ASSERT_EQ(ComHostRegisterDriver("Radio-1", &driver), 1);
    driver.size = offsetof(ComHostDriver, counters) - 1; // the first record ends there
    EXPECT_EQ(ComHostRegisterDriver("radio", &driver), -1);
    driver.size = sizeof driver;
    driver.write = nullptr;
    EXPECT_EQ(ComHostRegisterDriver("radio", &driver), -1);
    driver = {}; // of the good one a copy was taken
    Device device;
    ASSERT_EQ(device.open("rADIO-1:east"), 1);
    EXPECT_EQ(opened, "rADIO-1:east");
    char bytes[4];
    int32_t error = -1;
    EXPECT_EQ(device.read(bytes, 4), 4) << "a driver's answer is held to the buffer";
    EXPECT_EQ(device.write(bytes, 4, COM_HOST_WRITE_NOW, error), 4);
    EXPECT_EQ(error, 0);
    EXPECT_FALSE(device.canWait() || device.flush()) << "it has no such functions";
    EXPECT_EQ(device.status(COM_HOST_WANT_IN).inQueue, 0U);
    for (const char* options : {"dtr=off", "rts=off&close=leave", "rs485=rts"})
        EXPECT_EQ(device.open(std::string("radio-1:east?") + options), -EINVAL) << "it has no lines";
    EXPECT_EQ(device.open("radio-1:east?dtr=on&close=lower"), 1);
}

TEST(DeviceHandles, OnePortAtATimeAndItsEndIsTheDevicesEnd) {
    brisolt::test::ScriptedDriver driver;
    const int32_t handle = ComHostOpenDevice(driver.path().c_str());
    ASSERT_GE(handle, 0);
    EXPECT_EQ(ComHostOpenDevice(driver.path().c_str()), -1) << "the same handle for a second device";
    EXPECT_EQ(driver.devices(), 1);
    Device first;
    Device second;
    ASSERT_EQ(first.adopt(handle), 1);
    EXPECT_EQ(second.adopt(handle), -EBUSY);
    first.close();
    ASSERT_EQ(second.adopt(handle), 1);
    EXPECT_EQ(ComHostCloseDevice(handle), 1);
    EXPECT_EQ(first.adopt(handle), -EBADF);
    EXPECT_EQ(driver.devices(), 1);
    second.close();
    EXPECT_EQ(driver.devices(), 0);
}
