// Files by handle: positions, what others may do, and handles of nothing.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "brisolt.h"
#include "support/bare_port.h"
#include "transfer/files.h"

namespace brisolt {
namespace {

class Handles : public testing::Test {
protected:
    std::string read(int32_t handle, int32_t count) const {
        std::string bytes(static_cast<std::size_t>(count), '\0');
        bytes.resize(static_cast<std::size_t>(ComReadFile(3, handle, bytes.data(), count)));
        return bytes;
    }
    int32_t write(int32_t handle, const std::string& bytes) const {
        return ComWriteFile(3, handle, bytes.data(), static_cast<int32_t>(bytes.size()));
    }
    test::BarePort port{3};
    test::Files files;
    std::string path = files.make("file", "12345");
};

TEST_F(Handles, AreAtTheEndOnceAndThenWhereTheyArePut) {
    const int32_t handle = ComOpenWriteFile(3, path.c_str());
    ASSERT_GT(handle, 0);
    EXPECT_EQ(write(handle, "67"), 2);
    EXPECT_EQ(ComSetFilePointer(3, handle, 1), 1);
    EXPECT_EQ(write(handle, "bc"), 2);
    EXPECT_EQ(read(handle, 10), "4567");
    EXPECT_EQ(read(handle, 10), "");
    EXPECT_EQ(ComSetFilePointer(3, handle, 20), 20); // beyond the end is allowed
    EXPECT_EQ(ComSetFilePointer(3, handle, -1), -1);
    EXPECT_EQ(ComCloseFile(3, handle), 1);
    EXPECT_EQ(files.bytes("file"), "1bc4567");

    const int32_t reader = ComOpenReadFile(3, path.c_str());
    EXPECT_EQ(read(reader, 3), "1bc");
    EXPECT_EQ(write(reader, "x"), 0);
    EXPECT_EQ(ComCloseFile(3, reader), 1);

    const int32_t fresh = ComOpenWriteFile(3, files.path("fresh").c_str());
    EXPECT_EQ(write(fresh, "new"), 3);
    EXPECT_EQ(ComCloseFile(3, fresh), 1);
    EXPECT_EQ(files.bytes("fresh"), "new");

    const int32_t full = ComOpenWriteFile(3, "/dev/full");
    ASSERT_GT(full, 0);
    EXPECT_EQ(write(full, "x"), 0);
    EXPECT_EQ(ComCloseFile(3, full), 1);
}

TEST_F(Handles, OfNothing) {
    char buffer[4] = "";
    const int32_t handle = ComOpenReadFile(3, path.c_str());
    EXPECT_EQ(ComCloseFile(4, handle), -1); // no such port
    EXPECT_EQ(ComReadFile(3, handle, nullptr, 1), -1);
    EXPECT_EQ(ComReadFile(3, handle, buffer, -1), -1);
    EXPECT_EQ(ComCloseFile(3, handle), 1);
    const int32_t next = ComOpenReadFile(3, path.c_str());
    for (const int32_t gone : {handle, 0, -1, 12345678}) { // a handle kept too long reaches no other file
        EXPECT_EQ(ComReadFile(3, gone, buffer, 4), 0);
        EXPECT_EQ(ComWriteFile(3, gone, buffer, 4), 0);
        EXPECT_EQ(ComSetFilePointer(3, gone, 0), -1);
        EXPECT_EQ(ComCloseFile(3, gone), gone == 0 ? 1 : -1);
    }
    EXPECT_EQ(read(next, 5), "12345");
    EXPECT_EQ(ComCloseFile(3, next), 1);

    const std::string missing = files.path("missing"), nowhere = files.path("no/where");
    EXPECT_EQ(ComOpenReadFile(3, missing.c_str()), 0);
    EXPECT_EQ(ComOpenReadFile(4, path.c_str()), 0);
    EXPECT_EQ(ComOpenWriteFile(3, nowhere.c_str()), 0);
    EXPECT_EQ(ComOpenWriteFile(3, nullptr), 0);
}

TEST_F(Handles, ClosedInTheMiddleOfReads) {
    for (int round = 0; round < 50; ++round) {
        const int32_t handle = ComOpenReadFile(3, path.c_str());
        std::thread reader([=] {
            char buffer[8];
            while (ComSetFilePointer(3, handle, 0) == 0)
                ComReadFile(3, handle, buffer, 8);
        });
        EXPECT_EQ(ComCloseFile(3, handle), 1);
        reader.join();
    }
    EXPECT_EQ(ComFileExist(path.c_str()), 1); // all are really closed
}

} // namespace
} // namespace brisolt
