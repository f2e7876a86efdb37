#include "platform/host/translocation.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <fstream>

#include "platform/host/peer_identity.h"
#include "tests/support/child_program.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

constexpr std::string_view kMounts =
    "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
    "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
    "60 27 0:50 / /tmp/.mount_Toolab12 ro,nosuid,nodev shared:31 master:2 - fuse.Tool.AppImage Tool.AppImage "
    "ro,user_id=1000,group_id=1000\n"
    "61 27 0:51 / /tmp/.mount_My\\040Tool\\134 ro - fuse /home/me/My\\040Tool ro,group_id=1,user_id=7,user_id=8\n"
    "62 27 0:52 / /home/me/disk ro - fuse.sshfs host: rw,user_id=1000,group_id=1000\n"
    "63 27 0:53 / /tmp/.mount_tmpfs rw - tmpfs Tool.AppImage rw\n"
    "64 60 0:54 / /tmp/.mount_Toolab12/inner rw - tmpfs tmpfs rw\n";

TEST(AnImageMount, IsFoundAboveAnExecutable) {
    const auto mount = imageMountIn(kMounts, "/tmp/.mount_Toolab12/usr/bin/tool");
    ASSERT_TRUE(mount.has_value());
    EXPECT_EQ(mount->point, "/tmp/.mount_Toolab12");
    EXPECT_EQ(mount->source, "Tool.AppImage");
    EXPECT_EQ(mount->owner, 1000U);
}

TEST(AnImageMount, MayHaveOddCharactersInItsNames) {
    const auto mount = imageMountIn(kMounts, "/tmp/.mount_My Tool\\/tool");
    ASSERT_TRUE(mount.has_value());
    EXPECT_EQ(mount->source, "/home/me/My Tool");
    EXPECT_EQ(mount->owner, 7U);
}

TEST(AnImageMount, IsNoOtherMount) {
    for (const char* path :
         {"/usr/bin/tool", "/tmp/.mount_Toolab12", "/tmp/.mount_Toolab123/tool", "/home/me/disk/tool",
          "/tmp/.mount_tmpfs/tool", "/tmp/.mount_Toolab12/inner/tool", ""}) {
        EXPECT_FALSE(imageMountIn(kMounts, path).has_value()) << path;
    }
}

TEST(AnImageMount, ThatIsCoveredByAnotherIsNone) {
    const std::string mounts = std::string(kMounts) + "70 27 0:60 / /tmp/.mount_Toolab12 rw - tmpfs none rw\n";
    EXPECT_FALSE(imageMountIn(mounts, "/tmp/.mount_Toolab12/tool").has_value());
}

TEST(AnImageMount, IsReadFromAnyTextWithoutHarm) {
    for (const char* text : {"", "\n\n\n", "1", "1 2 3 4", "1 2 3 4 /x", "1 2 3 4 / a b c", "1 2 3 4 /x - fuse",
                             "1 2 3 4 /\\ - fuse a b", "1 2 3 4 /\\777\\0 - fuse \\9 user_id="}) {
        EXPECT_FALSE(imageMountIn(text, "/x/y").has_value()) << text;
    }
    for (const char* options : {"", "user_id=", "user_id=-1", "user_id=9x", "user_id=4294967296", "xuser_id=1"}) {
        const std::string line = std::string("1 2 3 4 /.mount_x - fuse x ") + options;
        const auto mount = imageMountIn(line, "/.mount_x/y");
        ASSERT_TRUE(mount.has_value()) << options;
        EXPECT_EQ(mount->owner, kNoUser) << options;
    }
}

TEST(AnEnvironment, MayNameAnImage) {
    EXPECT_EQ(imageNamedIn(std::string_view("A=b\0APPIMAGE=/home/me/My Tool\0Z=\0", 34)), "/home/me/My Tool");
    EXPECT_EQ(imageNamedIn("APPIMAGE=/x"), "/x");
    EXPECT_EQ(imageNamedIn(std::string_view("APPIMAGE=/x\0APPIMAGE=/y\0", 24)), "/x");
}

TEST(AnEnvironment, NamesNoImageButByAnAbsolutePath) {
    for (const char* environment : {"", "APPIMAGE", "APPIMAGE=", "APPIMAGE=x", "XAPPIMAGE=/x", "APPIMAGES=/x"}) {
        EXPECT_EQ(imageNamedIn(environment), std::nullopt) << environment;
    }
    EXPECT_EQ(imageNamedIn("APPIMAGE=/" + std::string(PATH_MAX, 'x')), std::nullopt);
}

/// Where the test may mount nothing, it can show nothing.
constexpr int kNotPermitted = 77;

bool writeText(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.flush();
    return file.good();
}

/// Makes a namespace in which this process may mount, with the users that there are.
bool mayMount() {
    const Uid uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (uid == 0) {
        return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    const auto mapOf = [](unsigned id) { return std::to_string(id) + " " + std::to_string(id) + " 1"; };
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeText("/proc/self/setgroups", "deny") &&
           writeText("/proc/self/uid_map", mapOf(uid)) && writeText("/proc/self/gid_map", mapOf(gid));
}

/// A file system that nobody serves: that it is mounted is all that counts.
bool mountImage(const std::string& source, const std::string& point) {
    const int device = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options = "fd=" + std::to_string(device) +
                                ",rootmode=40000,user_id=" + std::to_string(::geteuid()) +
                                ",group_id=" + std::to_string(::getegid());
    return device >= 0 &&
           ::mount(source.c_str(), point.c_str(), "fuse.image", MS_NOSUID | MS_NODEV, options.c_str()) == 0;
}

class AProgramInAnImage : public testing::Test {
protected:
    AProgramInAnImage()
        : image_(folder_.writeFile("Tool.AppImage", "")),
          other_(folder_.writeFile("Other.AppImage", "")),
          point_(folder_.makeFolder(".mount_Toolab12")) {}

    /// What is found of a process that says `image` of itself, where "Tool.AppImage" is mounted.
    void expectImage(const std::string& image, const std::optional<std::string>& expected) const {
        const pid_t child = ::fork();
        if (child == 0) {
            const bool isMounted = mayMount() && mountImage("Tool.AppImage", point_);
            ::_exit(!isMounted ? kNotPermitted : isFound(image, expected) ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_TRUE(WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == kNotPermitted) << image;
        RecordProperty("result", WEXITSTATUS(status));
    }

    bool isFound(const std::string& image, const std::optional<std::string>& expected) const {
        const test::ChildCat cat("/bin/cat", {"APPIMAGE=" + image});
        return imageOfProcess(cat.token(), point_ + "/tool") == expected &&
               imageOfProcess(cat.token(), "/bin/cat") == std::nullopt;
    }

    test::TempFolder folder_;
    std::string image_;
    std::string other_;
    std::string point_;
};

TEST_F(AProgramInAnImage, IsKnownByTheImage) {
    expectImage(image_, image_);
}

TEST_F(AProgramInAnImage, CannotNameAnotherFile) {
    expectImage(other_, std::nullopt);
    expectImage(folder_.at("nothing/Tool.AppImage"), std::nullopt);
    expectImage("Tool.AppImage", std::nullopt);
}

TEST_F(AProgramInAnImage, CannotNameWhatIsNoFile) {
    expectImage(folder_.makeFolder("folder/Tool.AppImage"), std::nullopt);
    const std::string pipe = folder_.makeFolder("pipe") + "/Tool.AppImage";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    expectImage(pipe, std::nullopt);
}

TEST_F(AProgramInAnImage, CannotNameAFileByAWayAround) {
    const std::string link = folder_.makeFolder("link") + "/Tool.AppImage";
    ASSERT_EQ(::symlink(image_.c_str(), link.c_str()), 0);
    expectImage(link, std::nullopt);
    expectImage(folder_.at("link/../Tool.AppImage"), std::nullopt);
}

TEST_F(AProgramInAnImage, CannotNameTheFileOfAnotherUser) {
    // Another user's file of that name: root gives one away, and nobody else can have made one in root's folder.
    const std::string file = folder_.makeFolder("another") + "/Tool.AppImage";
    folder_.writeFile("another/Tool.AppImage", "");
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(file.c_str(), 65534, 65534), 0);
        expectImage(file, std::nullopt);
    } else {
        ASSERT_EQ(::unlink(file.c_str()), 0);
        expectImage("/etc/passwd", std::nullopt);
    }
}

TEST_F(AProgramInAnImage, IsNoneWithoutTheMount) {
    const test::ChildCat cat("/bin/cat", {"APPIMAGE=" + image_});
    EXPECT_EQ(imageOfProcess(cat.token(), point_ + "/tool"), std::nullopt);
}

}  // namespace
}  // namespace ksw::host
