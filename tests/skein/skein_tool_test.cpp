// The program `skein`, as its users run it.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <regex>
#include <string>

#include "trace_files.h"
#include "trace_image.h"

namespace skein_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct outcome {
    int code = -1;
    std::string output;
    std::string errors;
};

class SkeinTool : public trace_files {
  protected:
    // What makes a command of root's obey the permissions of files.
    static std::string unprivileged() {
        return geteuid() == 0 ? "setpriv --bounding-set -dac_override,-dac_read_search " : "";
    }
    // Runs the program with arguments of a shell's command line.
    [[nodiscard]] outcome run(const std::string &arguments, const std::string &prefix = "") const {
        const std::string errors = directory_.string() + ".errors";
        FILE *pipe = popen((prefix + SKEIN_TOOL + ' ' + arguments + " 2>" + errors).c_str(), "r");
        outcome result;
        std::array<char, 4096> buffer{};
        while (const std::size_t length = fread(buffer.data(), 1, buffer.size(), pipe)) {
            result.output.append(buffer.data(), length);
        }
        const int status = pclose(pipe);
        result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.errors = bytes_of(errors);
        std::filesystem::remove(errors);
        return result;
    }
    // Entries have ticket nanoseconds after 2023-11-14T22:13:20Z, process 4711, thread 4712 and the attributes 99.
    void make_file(const std::string &name, const std::vector<std::string> &texts) const {
        trace_image image(64, 128);
        for (const std::string &text : texts) {
            image.append(text);
        }
        std::filesystem::create_directories(path(name).parent_path());
        write_bytes(path(name), image.bytes());
    }
};

TEST_F(SkeinTool, CatPrintsOneLineForEachEntry) {
    make_file("agent/a.trace", {"first", "second"});
    const outcome result = run("cat agent/a.trace");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output,
              "2023-11-14T22:13:20.000000Z 4711/4712 first\n"
              "2023-11-14T22:13:20.000000Z 4711/4712 second\n");
}

TEST_F(SkeinTool, CatShowsWhatTheLibraryWrote) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0x0000010101000000, "hello"), 0);
    EXPECT_EQ(skein_close(handle), 0);
    const std::string number = std::to_string(getpid());
    const outcome result = run("cat -a a");
    EXPECT_TRUE(std::regex_match(result.output, std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{6}Z " +
                                                           number + '/' + number + " 0x0000010101000000 hello\n")))
        << result.output;
}

TEST_F(SkeinTool, CatPrintsLocalTimeOnDemand) {
    make_file("a", {"x"});
    setenv("TZ", "IST-05:30", 1);
    const outcome result = run("cat --local a");
    unsetenv("TZ");
    EXPECT_EQ(result.output, "2023-11-15T03:43:20.000000+05:30 4711/4712 x\n");
}

TEST_F(SkeinTool, CatEscapesWhatATerminalWouldObey) {
    make_file("a", {"a\nb\tc\rd\\e", "\x1b[31mred\x7f\x01", "\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80",
                    "\xc2\x9b \x9b \xc3 \xe0\x80\xaf \xed\xa0\x80 \xf8", std::string("\xe2\x80") + "\xae"});
    const std::string head = "2023-11-14T22:13:20.000000Z 4711/4712 ";
    EXPECT_EQ(run("cat a").output, head + "a\\nb\\tc\\rd\\\\e\n" +                                                //
                                       head + "\\x1b[31mred\\x7f\\x01\n" +                                        //
                                       head + "\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80\n" +                        //
                                       head + "\\xc2\\x9b \\x9b \\xc3 \\xe0\\x80\\xaf \\xed\\xa0\\x80 \\xf8\n" +  //
                                       head + "\\xe2\\x80\\xae\n");
}

TEST_F(SkeinTool, CatPrintsJson) {
    make_file("a", {"quoted \"x\"", "bad \xff"});
    EXPECT_EQ(run("cat --json a").output,
              R"({"ticket":0,"time":"2023-11-14T22:13:20.000000Z","nanoseconds":"1700000000000000000",)"
              R"("pid":4711,"tid":4712,"attributes":"0x0000000000000063","text":"quoted \"x\""})"
              "\n"
              R"({"ticket":1,"time":"2023-11-14T22:13:20.000000Z","nanoseconds":"1700000000000000001",)"
              R"("pid":4711,"tid":4712,"attributes":"0x0000000000000063","text":"bad )"
              "\xef\xbf\xbd\"}\n");
}

TEST_F(SkeinTool, CatTellsACutTextAndLosses) {
    const uint64_t handle = open_or_fail("a", 1, 64);
    EXPECT_EQ(_skein_str(handle, 0, "0123456789abcdefg"), 0);
    EXPECT_EQ(skein_close(handle), 0);
    std::string bytes = bytes_of(path("a"));
    bytes[256] = 3;
    write_bytes(path("a"), bytes);
    const outcome result = run("cat a");
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.output, HasSubstr(" 0123456789abcdef [cut: 17 bytes]\n"));
    EXPECT_EQ(result.errors, "skein: a: 3 entries lost by writers\n");
}

TEST_F(SkeinTool, CatTakesADirectoryOrAPath) {
    make_file("d/a", {"x"});
    unsetenv("SKEIN_DIR");
    EXPECT_THAT(run("cat --directory " + directory_.string() + " d/a").output, HasSubstr(" x\n"));
    EXPECT_THAT(run("cat -d " + path("d").string() + " a").output, HasSubstr(" x\n"));
    EXPECT_THAT(run("cat " + path("d/a").string()).output, HasSubstr(" x\n"));
}

TEST_F(SkeinTool, CatExplainsFailures) {
    const std::string here = directory_.string();
    write_bytes(path("text"), "no trace");
    EXPECT_EQ(run("cat missing").code, 1);
    EXPECT_EQ(run("cat missing").errors, "skein: missing: no such trace file in " + here + "\n");
    EXPECT_EQ(run("cat d/missing").errors, "skein: d/missing: no such trace file in " + here + "\n");
    EXPECT_EQ(run("cat ./missing").errors, "skein: ./missing: No such file or directory\n");
    EXPECT_EQ(run("cat text").errors, "skein: text: not a trace file, or damaged\n");
    EXPECT_EQ(run("cat a/../b").errors, "skein: a/../b: not a name of a trace file (for a path begin with / or ./)\n");
    make_file("a", {"x"});
    std::filesystem::create_symlink("a", path("link"));
    std::filesystem::create_directory(path("d"));
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(run("cat link").errors, "skein: link: is a symbolic link\n");
    EXPECT_EQ(run("cat d").errors, "skein: d: is a directory\n");
    EXPECT_EQ(run("cat pipe").errors, "skein: pipe: not a regular file\n");
    EXPECT_EQ(run("cat a/b").errors, "skein: a/b: one of its directories is a symbolic link or no directory\n");
    EXPECT_EQ(run("cat a >/dev/full").code, 1);
    EXPECT_EQ(run("cat a >/dev/full").errors, "skein: standard output: No space left on device\n");
}

TEST_F(SkeinTool, CatOfADamagedFilePrintsTheRestAndSaysSo) {
    make_file("a", {"x", "y"});
    std::string bytes = bytes_of(path("a"));
    bytes[4096 + 48] ^= 1;
    bytes[136] = 1;
    write_bytes(path("a"), bytes.substr(0, bytes.size() - 8));
    const outcome result = run("cat a");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output, "2023-11-14T22:13:20.000000Z 4711/4712 y\n");
    EXPECT_EQ(result.errors, "skein: a: 1 entry damaged, the file is cut short, the file was removed or moved aside\n");
}

TEST_F(SkeinTool, RefusesAPlaceThatIsNotTheUsersOwn) {
    make_file("a", {"x"});
    std::filesystem::permissions(directory_, std::filesystem::perms::others_write, std::filesystem::perm_options::add);
    const std::string complaint = "skein: " + directory_.string() +
                                  ": belongs to another user, or all users may write to it (--directory reads it)\n";
    for (const char *const command : {"cat a", "list", "delete a"}) {
        EXPECT_EQ(run(command).errors, complaint) << command;
        EXPECT_EQ(run(command).code, 1) << command;
    }
    EXPECT_THAT(run("cat -d " + directory_.string() + " a").output, HasSubstr(" x\n"));
    EXPECT_EQ(run("list -d " + directory_.string()).output, "a: 1 entry, 64 slots of 128 bytes\n");
    setenv("SKEIN_DIR", "relative", 1);
    for (const char *const command : {"cat a", "list", "delete a"}) {
        EXPECT_EQ(run(command).errors, "skein: SKEIN_DIR: must be an absolute path of at most 1023 bytes\n");
        EXPECT_EQ(run(command).code, 1) << command;
    }
}

TEST_F(SkeinTool, ListShowsEveryFile) {
    make_file("b/one", {"x", "y"});
    make_file("a", {});
    EXPECT_EQ(run("list").output, "a: 0 entries, 64 slots of 128 bytes\nb/one: 2 entries, 64 slots of 128 bytes\n");
    EXPECT_EQ(run("list").code, 0);
    EXPECT_EQ(run("list -d " + path("b").string()).output, "one: 2 entries, 64 slots of 128 bytes\n");
    EXPECT_EQ(run("list -j -d " + path("b").string()).output,
              R"({"name":"one","slots":64,"slot_size":128,"entries":2,"lost":0,"damaged":0,"unfinished":0,"overrun":0,)"
              R"("truncated":false,"superseded":false,"creator":4711,"created":"2023-11-14T22:13:20.000000Z"})"
              "\n");
    write_bytes(path("text"), "no trace");
    std::filesystem::create_symlink("b", path("link"));
    const outcome result = run("list");
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "a: 0 entries, 64 slots of 128 bytes\nb/one: 2 entries, 64 slots of 128 bytes\n");
    EXPECT_EQ(result.errors, "skein: text: not a trace file, or damaged\n");
}

TEST_F(SkeinTool, ListKnowsWhatTheLibraryMovedAside) {
    write_bytes(path("a"), "no trace");
    EXPECT_EQ(skein_close(open_or_fail("a", 16, 4096)), 0);
    const outcome result = run("list");
    EXPECT_EQ(result.output, "a: 0 entries, 16 slots of 256 bytes\na.damaged: moved aside because it was damaged\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(run("list --json").output, HasSubstr(R"({"name":"a.damaged","moved_aside":true})"
                                                     "\n"));
}

TEST_F(SkeinTool, ListGoesOnBehindADirectoryThatCannotBeRead) {
    make_file("a", {});
    make_file("b/c", {});
    make_file("d", {});
    std::filesystem::permissions(path("b"), std::filesystem::perms::none);
    const outcome result = run("list", unprivileged());
    std::filesystem::permissions(path("b"), std::filesystem::perms::owner_all);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "a: 0 entries, 64 slots of 128 bytes\nd: 0 entries, 64 slots of 128 bytes\n");
    EXPECT_EQ(result.errors, "skein: " + path("b").string() + ": Permission denied\n");
}

TEST_F(SkeinTool, ListOfNothingSaysWhereItLooked) {
    const outcome empty = run("list");
    EXPECT_EQ(empty.code, 0);
    EXPECT_EQ(empty.output, "");
    EXPECT_EQ(empty.errors, "skein: " + directory_.string() + ": no trace files\n");
    setenv("SKEIN_DIR", path("missing").c_str(), 1);
    const outcome missing = run("list");
    EXPECT_EQ(missing.code, 0);
    EXPECT_EQ(missing.errors, "skein: " + path("missing").string() + ": no trace files\n");
    EXPECT_EQ(run("list -d " + path("missing").string()).code, 1);
}

TEST_F(SkeinTool, DeleteRemovesAFileWhoseWritersThenChangeOver) {
    const uint64_t handle = open_or_fail("d/a", 16, 4096);
    const outcome result = run("delete d/a");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_FALSE(std::filesystem::exists(path("d/a")));
    const uint64_t next = open_or_fail("d/a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    EXPECT_THAT(run("cat d/a").output, HasSubstr(" x\n"));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(skein_close(next), 0);
    EXPECT_EQ(run("delete -d " + path("d").string() + " a").code, 0);
    EXPECT_FALSE(std::filesystem::exists(path("d/a")));
    EXPECT_EQ(run("delete d/a").code, 1);
    EXPECT_EQ(run("delete d/a").errors, "skein: d/a: no such trace file in " + directory_.string() + "\n");
    EXPECT_EQ(run("delete -d " + path("missing").string() + " a").code, 1);
}

TEST_F(SkeinTool, ExplainsItsUsage) {
    EXPECT_EQ(run("--help").code, 0);
    EXPECT_THAT(run("--help").output, HasSubstr("cat"));
    EXPECT_THAT(run("cat --help").output, HasSubstr("--attributes"));
    EXPECT_THAT(run("--version").output, StartsWith("skein "));
    EXPECT_EQ(run("").code, 2);
    EXPECT_EQ(run("cat").code, 2);
    EXPECT_EQ(run("dog").code, 2);
    EXPECT_EQ(run("cat a --unknown").code, 2);
    EXPECT_NE(run("cat").errors, "");
}

}  // namespace
}  // namespace skein_test
