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
    // Runs the program with arguments of a shell's command line.
    [[nodiscard]] outcome run(const std::string &arguments) const {
        const std::string errors = directory_.string() + ".errors";
        FILE *pipe = popen((std::string(SKEIN_TOOL) + ' ' + arguments + " 2>" + errors).c_str(), "r");
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
    setenv("TZ", "XXX-05:30", 1);
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
              R"({"ticket":0,"time":"2023-11-14T22:13:20.000000Z","nanoseconds":1700000000000000000,"pid":4711,)"
              R"("tid":4712,"attributes":99,"text":"quoted \"x\""})"
              "\n"
              R"({"ticket":1,"time":"2023-11-14T22:13:20.000000Z","nanoseconds":1700000000000000001,"pid":4711,)"
              R"("tid":4712,"attributes":99,"text":"bad )"
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
    write_bytes(path("text"), "no trace");
    EXPECT_EQ(run("cat missing").code, 1);
    EXPECT_EQ(run("cat missing").errors, "skein: missing: No such file or directory\n");
    EXPECT_EQ(run("cat text").errors, "skein: text: not a trace file, or damaged\n");
    EXPECT_EQ(run("cat a/../b").errors, "skein: a/../b: Invalid argument\n");
    make_file("a", {"x"});
    EXPECT_EQ(run("cat a >/dev/full").code, 1);
    EXPECT_EQ(run("cat a >/dev/full").errors, "skein: standard output: No space left on device\n");
}

TEST_F(SkeinTool, ListShowsEveryFile) {
    make_file("b/one", {"x", "y"});
    make_file("a", {});
    EXPECT_EQ(run("list").output, "a: 0 entries, 64 slots of 128 bytes\nb/one: 2 entries, 64 slots of 128 bytes\n");
    EXPECT_EQ(run("list").code, 0);
    EXPECT_THAT(
        run("list --json").output,
        StartsWith(R"({"name":"a","slots":64,"slot_size":128,"entries":0,"lost":0,"damaged":0,"unfinished":0,)"));
    EXPECT_EQ(run("list -d " + path("b").string()).output, "one: 2 entries, 64 slots of 128 bytes\n");
    write_bytes(path("text"), "no trace");
    std::filesystem::create_symlink("b", path("link"));
    const outcome result = run("list");
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "a: 0 entries, 64 slots of 128 bytes\nb/one: 2 entries, 64 slots of 128 bytes\n");
    EXPECT_EQ(result.errors, "skein: text: not a trace file, or damaged\n");
}

TEST_F(SkeinTool, ListOfNothingIsEmpty) {
    setenv("SKEIN_DIR", path("missing").c_str(), 1);
    const outcome result = run("list");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(run("list -d " + path("missing").string()).code, 1);
}

TEST_F(SkeinTool, ExplainsItsUsage) {
    EXPECT_EQ(run("--help").code, 0);
    EXPECT_THAT(run("--help").output, HasSubstr("cat"));
    EXPECT_THAT(run("cat --help").output, HasSubstr("--attributes"));
    EXPECT_EQ(run("").code, 2);
    EXPECT_EQ(run("cat").code, 2);
    EXPECT_EQ(run("dog").code, 2);
    EXPECT_EQ(run("cat a --unknown").code, 2);
    EXPECT_NE(run("cat").errors, "");
}

}  // namespace
}  // namespace skein_test
