// Names of devices, the list of the host's devices, registered drivers, and the handles that are handed out.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/device.h"
#include "platform/posix/device_list.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
namespace names = brisolt::deviceNames;
using brisolt::Device;

TEST(DeviceNames, ResolvesPortNamesAndNothingElse) {
    ASSERT_EQ(names::map(7, "/tmp/bench"), 1);
    for (const char* name : {"COM7", "com7", "\\\\.\\COM7", "\\\\.\\Com7"})
        EXPECT_EQ(names::resolve(name), "/tmp/bench") << name;
    for (const char* name : {"COM", "\\\\.\\COM", "COM0", "COM257", "COM07", "COM7x", "COM1000", "CO7",
                             "/dev/ttyUSB0", "null-modem:COM7", ""})
        EXPECT_EQ(names::resolve(name), name);
    EXPECT_EQ(names::map(7, nullptr), 1);
    EXPECT_EQ(names::map(256, "/tmp/last"), 1);
    EXPECT_EQ(names::resolve("COM256"), "/tmp/last");
    EXPECT_EQ(names::map(256, ""), 1);
    const bool linked = fs::exists("/dev/com256");
    EXPECT_EQ(names::resolve("COM256"), linked ? "/dev/com256" : "/dev/ttyS255");
}

TEST(DeviceNames, RefusedMappingsChangeNothing) {
    ASSERT_EQ(names::map(3, "/tmp/kept"), 1);
    EXPECT_EQ(names::map(3, std::string(260, 'x').c_str()), -1);
    EXPECT_EQ(names::map(0, "/tmp/x"), -1);
    EXPECT_EQ(names::map(257, "/tmp/x"), -1);
    EXPECT_EQ(names::resolve("COM3"), "/tmp/kept");
    const std::string longest(259, 'x');
    EXPECT_EQ(names::map(3, longest.c_str()), 1);
    EXPECT_EQ(names::resolve("COM3"), longest);
}

TEST(DeviceNames, FaceCutsTexts) {
    ASSERT_EQ(ComHostMapDevice(9, "/tmp/abcdef"), 1);
    char buffer[8] = {};
    EXPECT_EQ(ComHostGetDevicePath(9, buffer, sizeof buffer), 11);
    EXPECT_STREQ(buffer, "/tmp/ab");
    EXPECT_EQ(ComHostGetDevicePath(9, nullptr, 8), -1);
    EXPECT_EQ(ComHostGetDevicePath(9, buffer, 0), -1);
    EXPECT_EQ(ComHostGetDevicePath(257, buffer, 8), -1);
    EXPECT_EQ(ComHostGetDevice(-1, nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(ComHostGetDevice(100000, nullptr, 0, nullptr, 0), 0);
}

namespace {

/// A tree like the kernel's, with a UART, an absent one, two USB converters and a console.
class DeviceList : public testing::Test {
protected:
    void SetUp() override {
        addDevice("ttyS10", "uart1", "8250_pci");
        addDevice("ttyS2", "uart2", "8250_pci");
        addDevice("ttyS0", "uart3", "serial8250");
        write(root / "class/ttyS0/type", "0");
        write(root / "class/ttyS2/type", "4");
        addDevice("ttyUSB0", "usb1/interface/ttyUSB0", "ftdi_sio");
        write(root / "devices/usb1/idVendor", "1234");
        write(root / "devices/usb1/product", "Converter");
        write(root / "devices/usb1/serial", "A1");
        fs::create_directories(root / "class/tty1");
    }

    void addDevice(const std::string& name, const std::string& device, const std::string& driver) {
        fs::create_directories(root / "class" / name);
        fs::create_directories(root / "devices" / device);
        fs::create_directories(root / "drivers" / driver);
        fs::create_symlink(root / "devices" / device, root / "class" / name / "device");
        fs::create_symlink(root / "drivers" / driver, root / "devices" / device / "driver");
    }
    static void write(const fs::path& file, const char* text) { std::ofstream(file) << text << '\n'; }

    brisolt::test::TempDir directory;
    const fs::path root = directory.path();
};

} // namespace

TEST_F(DeviceList, ListsWhatHasADeviceInNaturalOrder) {
    const auto devices = names::listBelow(root / "class");
    ASSERT_EQ(devices.size(), 3U);
    EXPECT_EQ(devices[0].path, "/dev/ttyS2");
    EXPECT_EQ(devices[1].path, "/dev/ttyS10");
    EXPECT_EQ(devices[2].path, "/dev/ttyUSB0");
    EXPECT_EQ(devices[1].description, "8250_pci");
    EXPECT_EQ(devices[2].description, "Converter A1 (ftdi_sio)");
    EXPECT_TRUE(names::listBelow(root / "absent").empty());
}

TEST_F(DeviceList, NamesTheDriverAboveTheKernelsOwnLevels) {
    addDevice("ttyS3", "chip/chip:0/chip:0.0", "port");
    fs::create_directories(root / "bus/serial-base");
    fs::create_directories(root / "drivers/ctrl");
    fs::create_directories(root / "drivers/dw-apb-uart");
    for (const char* level : {"chip/chip:0", "chip/chip:0/chip:0.0"})
        fs::create_symlink(root / "bus/serial-base", root / "devices" / level / "subsystem");
    fs::create_symlink(root / "drivers/dw-apb-uart", root / "devices/chip/driver");
    EXPECT_EQ(names::listBelow(root / "class")[1].description, "dw-apb-uart");
}

namespace {

struct Bench {
    int32_t opened = 0;
    int32_t closed = 0;
    std::string path;
};

ComHostDriver benchDriver(Bench& bench) {
    ComHostDriver driver{};
    driver.size = sizeof driver;
    driver.context = &bench;
    driver.open = [](void* context, const char* path, void** device, int32_t* handle) -> int32_t {
        auto* self = static_cast<Bench*>(context);
        if (std::string_view(path).ends_with("refuse"))
            return -EPERM;
        self->opened++;
        self->path = path;
        *device = self;
        *handle = 70000;
        return 1;
    };
    driver.close = [](void* device) { static_cast<Bench*>(device)->closed++; };
    driver.read = [](void*, void*, int32_t count) { return count + 5; };
    driver.write = [](void*, const void*, int32_t count, uint32_t, int32_t*) { return count + 5; };
    return driver;
}

} // namespace

TEST(DeviceDrivers, OpensByScheme) {
    Bench bench;
    ComHostDriver driver = benchDriver(bench);
    ASSERT_EQ(ComHostRegisterDriver("Radio-1", &driver), 1);
    driver = {}; // a copy was taken
    Device device;
    ASSERT_EQ(device.open("rADIO-1:east"), 1);
    EXPECT_EQ(bench.path, "rADIO-1:east");
    EXPECT_EQ(device.handle(), 70000);
    char bytes[4];
    int32_t error = -1;
    EXPECT_EQ(device.read(bytes, 4), 4) << "a driver's answer is held to the buffer";
    EXPECT_EQ(device.write(bytes, 4, COM_HOST_WRITE_NOW, error), 4);
    EXPECT_EQ(error, 0);
    EXPECT_FALSE(device.canWait());
    EXPECT_FALSE(device.flush());
    EXPECT_EQ(device.status(COM_HOST_WANT_IN).inQueue, 0U);
    device.close();
    EXPECT_EQ(bench.closed, 1);

    EXPECT_EQ(device.open("radio-1:refuse"), -EPERM);
    char text[200];
    ASSERT_GT(ComHostGetErrorText(text, sizeof text), 0);
    EXPECT_NE(std::string_view(text).find("radio-1:refuse"), std::string_view::npos) << text;
}

TEST(DeviceDrivers, RefusesBadRegistrations) {
    Bench bench;
    ComHostDriver driver = benchDriver(bench);
    for (const char* scheme :
         {"", "x", "null-modem", "NULL-Modem", "a b", "/dev/x", "abcdefghijklmnopqrstuvwxyz123456"})
        EXPECT_EQ(ComHostRegisterDriver(scheme, &driver), -1) << scheme;
    EXPECT_EQ(ComHostRegisterDriver(nullptr, &driver), -1);
    EXPECT_EQ(ComHostRegisterDriver("radio", nullptr), -1);
    driver.size = sizeof driver - 1;
    EXPECT_EQ(ComHostRegisterDriver("radio", &driver), -1);
    driver.size = sizeof driver;
    driver.write = nullptr;
    EXPECT_EQ(ComHostRegisterDriver("radio", &driver), -1);
}

TEST(DeviceHandles, OnePortAtATimeAndItsEndIsTheDevicesEnd) {
    Bench bench;
    const ComHostDriver driver = benchDriver(bench);
    ASSERT_EQ(ComHostRegisterDriver("bench", &driver), 1);
    const int32_t handle = ComHostOpenDevice("bench:x");
    ASSERT_EQ(handle, 70000);
    EXPECT_EQ(ComHostOpenDevice("bench:y"), -1) << "the same handle for a second device";
    EXPECT_EQ(bench.closed, 1);

    Device first;
    Device second;
    ASSERT_EQ(first.adopt(handle), 1);
    EXPECT_EQ(second.adopt(handle), -EBUSY);
    first.close();
    ASSERT_EQ(second.adopt(handle), 1);
    EXPECT_EQ(ComHostCloseDevice(handle), 1);
    EXPECT_EQ(ComHostCloseDevice(handle), -1);
    Device late;
    EXPECT_EQ(late.adopt(handle), -EBADF);
    EXPECT_EQ(bench.closed, 1);
    second.close();
    EXPECT_EQ(bench.closed, 2);
    EXPECT_EQ(late.adopt(-1), -EBADF);
}
