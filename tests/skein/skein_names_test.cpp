// Which names and directories are taken, and that nobody is led out of them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <string>

#include "trace_files.h"

namespace skein_test {
namespace {

using testing::ElementsAre;

class SkeinNames : public trace_files {
  protected:
    static void expect_refused(const std::string &name, int32_t code) {
        uint64_t handle = 0;
        skein_reader *reader = nullptr;
        EXPECT_EQ(open_trace(name.c_str(), 4, 1024, &handle), code) << name;
        EXPECT_EQ(skein_delete(name.c_str()), code) << name;
        EXPECT_EQ(skein_reader_open(nullptr, name.c_str(), &reader), code) << name;
    }
    static void expect_taken(const std::string &name) {
        uint64_t handle = 0;
        EXPECT_EQ(open_trace(name.c_str(), 4, 1024, &handle), 0) << name;
        EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
        EXPECT_THAT(read_trace(name.c_str()).texts(), ElementsAre("x")) << name;
        EXPECT_EQ(skein_close(handle), 0);
        EXPECT_EQ(skein_delete(name.c_str()), 0) << name;
    }
};

class SkeinDirectory : public trace_files {};

TEST_F(SkeinNames, RefusesWhatIsNotAPathBelowTheDirectory) {
    for (const char *name : {"", "/", "/a", "a/", "a//b", ".", "..", "../a", "a/..", "a/../b", "./a", "a/.", "a/./b",
                             "a\nb", "a\x01", "\x7f", "a/\x1f/b"}) {
        expect_refused(name, EINVAL);
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory_));
}

TEST_F(SkeinNames, TakesWhatOnlyLooksLikeThat) {
    for (const char *name : {"a", "...", "..a", "a..", ".a", "a b", "a-b_c.d/e,f", "\xc3\xa9", "d1/d2/d3/d4"}) {
        expect_taken(name);
    }
}

TEST_F(SkeinNames, TakesComponentsAndPathsOfTheGreatestLengthAndNoMore) {
    expect_taken(std::string(255, 'x'));
    expect_taken(std::string(255, 'x') + '/' + std::string(255, 'y'));
    expect_refused(std::string(256, 'x'), EINVAL);
    expect_refused("a/" + std::string(256, 'x') + "/b", EINVAL);
    std::string longest;
    while (longest.size() < 1020) {
        longest += "abc/";
    }
    expect_taken(longest + "abc");
    expect_refused(longest + "abcd", EINVAL);
}

TEST_F(SkeinNames, FollowsNoLinks) {
    const std::filesystem::path elsewhere = path("elsewhere");
    std::filesystem::create_directory(elsewhere);
    write_bytes(elsewhere / "file", "untouched");
    std::filesystem::create_directory(path("d"));
    std::filesystem::create_symlink(elsewhere, path("d/link"));
    std::filesystem::create_symlink(elsewhere / "file", path("d/file"));
    std::filesystem::create_symlink(elsewhere / "missing", path("d/dangling"));
    expect_refused("d/link/file", ENOTDIR);
    expect_refused("d/file", ELOOP);
    expect_refused("d/dangling", ELOOP);
    expect_refused("d/link", ELOOP);
    EXPECT_EQ(bytes_of(elsewhere / "file"), "untouched");
    EXPECT_FALSE(std::filesystem::exists(elsewhere / "missing"));
    EXPECT_TRUE(std::filesystem::is_symlink(path("d/file")));
}

TEST_F(SkeinNames, RefusesWhatIsNoRegularFileWithoutWaiting) {
    std::filesystem::create_directory(path("directory"));
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path("socket").string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    expect_refused("directory", EISDIR);
    expect_refused("pipe", ENOTSUP);
    expect_refused("socket", ENOTSUP);
    close(listener);
    write_bytes(path("file"), "x");
    expect_refused("file/a", ENOTDIR);
}

TEST_F(SkeinDirectory, IsMadePrivateWhenItIsMissing) {
    setenv("SKEIN_DIR", path("new").c_str(), 1);
    skein_reader *reader = nullptr;
    EXPECT_EQ(skein_reader_open(nullptr, "a", &reader), ENOENT);
    EXPECT_EQ(skein_delete("a"), ENOENT);
    EXPECT_FALSE(std::filesystem::exists(path("new")));
    EXPECT_EQ(skein_close(open_or_fail("a", 4, 1024)), 0);
    struct stat status {};
    ASSERT_EQ(stat(path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_F(SkeinDirectory, IsNotTakenWhenItIsALink) {
    std::filesystem::create_directory(path("real"));
    std::filesystem::create_symlink("real", path("link"));
    uint64_t handle = 0;
    for (const char *ending : {"", "/", "//", "/.", "/./", "/.//."}) {
        setenv("SKEIN_DIR", (path("link").string() + ending).c_str(), 1);
        EXPECT_EQ(open_trace("a", 4, 1024, &handle), ENOTDIR) << ending;
        EXPECT_EQ(skein_delete("a"), ENOTDIR) << ending;
    }
    setenv("SKEIN_DIR", (path("real").string() + "//").c_str(), 1);
    EXPECT_EQ(skein_close(open_or_fail("a", 4, 1024)), 0);
}

TEST_F(SkeinDirectory, IsNotTakenWhenOthersCanWriteToItOrOwnIt) {
    uint64_t handle = 0;
    ASSERT_EQ(chmod(directory_.c_str(), 0702), 0);
    EXPECT_EQ(open_trace("a", 4, 1024, &handle), EPERM);
    ASSERT_EQ(chmod(directory_.c_str(), 0770), 0);
    EXPECT_EQ(open_trace("a", 4, 1024, &handle), 0);
    EXPECT_EQ(skein_close(handle), 0);
    if (geteuid() != 0) {
        setenv("SKEIN_DIR", "/", 1);
        EXPECT_EQ(open_trace("a", 4, 1024, &handle), EPERM);
        return;
    }
    ASSERT_EQ(chown(directory_.c_str(), 12345, 12345), 0);
    EXPECT_EQ(open_trace("a", 4, 1024, &handle), EPERM);
    EXPECT_EQ(skein_delete("a"), EPERM);
    EXPECT_EQ(read_trace("a").error, EPERM);
    skein_reader *reader = nullptr;  // a directory that was chosen for reading may be anybody's
    EXPECT_EQ(skein_reader_open(directory_.c_str(), "a", &reader), 0);
    skein_reader_close(reader);
}

TEST_F(SkeinDirectory, AForeignFileInItIsNotTaken) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    EXPECT_EQ(skein_close(open_or_fail("a", 4, 1024)), 0);
    ASSERT_EQ(chown(path("a").c_str(), 12345, 12345), 0);
    uint64_t handle = 0;
    EXPECT_EQ(open_trace("a", 4, 1024, &handle), EPERM);
}

TEST_F(SkeinDirectory, MayBeRelativeForNobody) {
    setenv("SKEIN_DIR", "relative", 1);
    uint64_t handle = 0;
    EXPECT_EQ(open_trace("a", 4, 1024, &handle), EINVAL);
    EXPECT_EQ(skein_delete("a"), EINVAL);
    EXPECT_EQ(read_trace("a").error, EINVAL);
}

}  // namespace
}  // namespace skein_test
