// What a user types or feeds in never crashes, hangs or eats the machine: the strict number reader,
// the limits on frames, pixels and files, one-line errors with their exit codes, and the
// reproducers of faults found by sweeping extreme inputs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/AppError.h"
#include "app/Cli.h"
#include "app/Controls.h"
#include "app/Flow.h"
#include "app/ImageFiles.h"
#include "app/Limits.h"
#include "app/Numbers.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct Outcome {
    int code;
    std::string out, err;
};

Outcome RunCli(std::vector<std::string> args) {
    args.insert(args.begin(), "crate07");
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    std::ostringstream out, err;
    int code = RunCommandLine(static_cast<int>(argv.size()), argv.data(), out, err);
    return {code, out.str(), err.str()};
}

std::string Slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

const std::string kImages = std::string(CRATE07_SOURCE_DIR) + "/fuzz/corpus/image/";

class Hardening : public ::testing::Test {
  protected:
    void SetUp() override {
        RegisterPackTools();
        dir = fs::temp_directory_path() /
              ("crate07-hard-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override {
        fs::remove_all(dir);
        SetMaxPixels(kDefaultMaxPixels);
        GetApp()->interrupted.store(false);
    }
    std::string Path(const std::string& name) const { return (dir / name).string(); }

    // The real program in a shell, for what only a process shows: the standard error as a whole.
    // The image library's reader loses a few bytes when a PNG ends early; that is its own, and the
    // leak report would add lines that are not the program's.
    Outcome RunBinary(const std::string& args) const {
        const std::string cmd = std::string("cd '") + dir.string() +
                                "' && ASAN_OPTIONS=detect_leaks=0 '" + CRATE07_BINARY + "' " +
                                args + " >stdout.txt 2>stderr.txt";
        const int status = std::system(cmd.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(dir / "stdout.txt"),
                Slurp(dir / "stderr.txt")};
    }

    fs::path dir;
};

TEST(Numbers, OneReaderSaysWhatIsWrong) {
    struct Case {
        const char* text;
        NumberRead status;
        double value;
    };
    const std::string tiny = "0." + std::string(400, '0') + "1";
    const Case cases[] = {
        {"0", NumberRead::Ok, 0.0},
        {" -2.5 ", NumberRead::Ok, -2.5},
        {"+.5", NumberRead::Ok, 0.5},
        {"7.", NumberRead::Ok, 7.0},
        {"1e3", NumberRead::Ok, 1000.0},
        {"1E-2", NumberRead::Ok, 0.01},
        {tiny.c_str(), NumberRead::Ok, 0.0},  // below the smallest double: reads as 0
        {"1e-310", NumberRead::Ok, 1e-310},   // a denormal keeps its value
        {"1e308", NumberRead::Ok, 1e308},
        {"1e309", NumberRead::OutOfRange, 0.0},
        {"-1e999", NumberRead::OutOfRange, 0.0},
        {"", NumberRead::NotANumber, 0.0},
        {" ", NumberRead::NotANumber, 0.0},
        {".", NumberRead::NotANumber, 0.0},
        {"-", NumberRead::NotANumber, 0.0},
        {"1e", NumberRead::NotANumber, 0.0},
        {"0x10", NumberRead::NotANumber, 0.0},
        {"inf", NumberRead::NotANumber, 0.0},
        {"nan", NumberRead::NotANumber, 0.0},
        {"1,5", NumberRead::NotANumber, 0.0},
        {"1.2.3", NumberRead::NotANumber, 0.0},
        {"12abc", NumberRead::NotANumber, 0.0},
    };
    for (const Case& c : cases) {
        double v = -99.0;
        EXPECT_EQ(ReadReal(c.text, &v), c.status) << c.text;
        if (c.status == NumberRead::Ok) {
            EXPECT_EQ(v, c.value) << c.text;
        }
    }

    struct Fault {
        std::string text, message;
        std::function<void(const std::string&)> parse;
    };
    auto real = [](const std::string& t) { ParseReal(t, "--x"); };
    auto single = [](const std::string& t) { ParseFloat(t, "--x"); };
    auto whole = [](const std::string& t) { ParseWhole(t, -5, 5, "--x"); };
    const Fault faults[] = {
        {"abc", "--x 'abc' is not a number", real},
        {"1e400", "--x '1e400' is out of range", real},
        {"3.5e38", "--x '3.5e38' is out of range", single},  // beyond the largest float
        {"6", "--x '6' is out of range (-5 to 5)", whole},
        {"-6", "--x '-6' is out of range (-5 to 5)", whole},
        {"99999999999999999999999999", "--x '99999999999999999999999999' is out of range", whole},
        {"1.0", "--x '1.0' is not a whole number", whole},
        {"", "--x '' is not a whole number", whole},
        {"+", "--x '+' is not a whole number", whole},
    };
    for (const Fault& f : faults) {
        try {
            f.parse(f.text);
            ADD_FAILURE() << f.text << " was taken";
        } catch (const AppError& e) {
            EXPECT_NE(std::string(e.what()).find(f.message), std::string::npos) << e.what();
        }
    }
    EXPECT_EQ(ParseWhole(" -5", -5, 5, "--x"), -5);
    EXPECT_EQ(ParseWhole("+0005", -5, 5, "--x"), 5);
    EXPECT_EQ(ParseFloat("3e38", "--x"), 3e38f);
}

// Every reproducer is refused with one line of ours and its exit code, or renders.
TEST_F(Hardening, CommandLinesGetOneLineAndTheirExitCode) {
    const std::string out = Path("o.png");
    const std::string fifo = Path("pipe");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string longDrag = "0." + std::string(320, '0') + "1,0:0,0";
    struct Case {
        std::vector<std::string> args;
        int code;
        std::string message;  // empty: no error
    };
    const std::vector<Case> cases = {
        {{"apply", "Ripple", "--size", "33x21", "-o", out, "--frame", "2147483647"},
         1,
         "--frame '2147483647' is out of range (-1000000000 to 1000000000)"},
        {{"apply", "Ripple", "--size", "33x21", "-o", Path("o_#.png"), "--frames", "1-2147483647"},
         1,
         "--frames '2147483647' is out of range"},
        {{"apply", "Ripple", "--size", "8x8", "-o", out, "--frame", ""},
         1,
         "--frame '' is not a frame or a range A-B"},
        {{"apply", "Ripple", "--size", "8x8", "-o", out, "--frames", ""},
         1,
         "--frames '' is not a frame or a range A-B"},
        {{"apply", "Ripple", "--size", "8x8", "-o", out, "--set", "Amp=1e999"},
         1,
         "--set '1e999': '1e999' is out of range"},
        {{"apply", "Ripple", "-i", "/dev/zero", "-o", out},
         1,
         "cannot read image '/dev/zero': not a regular file"},
        {{"apply", "Ripple", "-i", fifo, "-o", out},
         1,
         "cannot read image '" + fifo + "': not a regular file"},
        {{"render", "/dev/zero"}, 1, "cannot read flow '/dev/zero': not a regular file"},
        {{"render", Path("none.json")}, 1, "cannot read flow '" + Path("none.json") + "': no such"},
        {{"apply", "Ripple", "-i", kImages + "huge-header.png", "-o", out},
         1,
         "100000x100000 is beyond the limit of 134217728 pixels (--max-pixels raises it)"},
        {{"--max-pixels", "63", "apply", "Ripple", "--size", "8x8", "-o", out},
         1,
         "--size '8x8': 8x8 is beyond the limit of 63 pixels"},
        {{"apply", "Ripple", "--max-pixels", "64", "--size", "8x8", "-o", out, "-q"}, 0, ""},
        {{"apply", "Ripple", "--max-pixels", "0", "--size", "8x8", "-o", out},
         1,
         "--max-pixels '0' is out of range"},
        {{"controls", "Lightning", "--size", "64x48", "--drag", longDrag}, 0, ""},
        {{"controls", "Lightning", "--size", "64x48", "--drag", "1e39,0:0,0"},
         1,
         "--drag '1e39,0:0,0': X1 '1e39' is out of range"},
        {{"controls", "Lightning", "--size", "64x48", "--drag", "1,2:x,4"},
         1,
         "--drag '1,2:x,4': X2 'x' is not a number"},
        {{"controls", "Lightning", "--frame", ""}, 1, "--frame '' is not a frame"},
        {{"apply", "Ripple", "--size", "8x8"}, 2, "crate07: --output is required"},
        {{"apply", "Ripple", "--size", "8x8", "-o", out, "--bogus"}, 2, "--bogus"},
        {{"nothing"}, 2, "crate07: "},
    };
    for (const Case& c : cases) {
        std::string line;
        for (const auto& a : c.args)
            line += a + " ";
        Outcome r = RunCli(c.args);
        EXPECT_EQ(r.code, c.code) << line << "\n" << r.err;
        if (c.code != 0) {
            EXPECT_EQ(r.out, "") << line;
        }
        if (c.message.empty()) {
            EXPECT_EQ(r.err, "") << line;
            continue;
        }
        EXPECT_EQ(r.err.rfind("crate07: ", 0), 0u) << line << "\n" << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << line << "\n" << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << line << "\n" << r.err;
    }
}

// The image libraries' own complaints do not reach the terminal: the program's whole standard
// error is our one line.
TEST_F(Hardening, BrokenImagesGiveOnlyOurLine) {
    struct Case {
        const char* file;
        const char* why;
    };
    const Case cases[] = {
        {"bad-crc.png", "CRC error"},
        {"truncated.png", "end of file"},
        {"zero-width.png", "IHDR"},
    };
    for (const Case& c : cases) {
        Outcome r = RunBinary("apply Ripple -o o.png -i '" + kImages + c.file + "'");
        EXPECT_EQ(r.code, kExitError) << c.file;
        EXPECT_EQ(r.err.rfind("crate07: cannot read image '" + kImages + c.file + "': ", 0), 0u)
            << r.err;
        EXPECT_NE(r.err.find(c.why), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    // The parser's complaints are one line of ours too.
    Outcome r = RunBinary("apply Ripple --size 8x8");
    EXPECT_EQ(r.code, kExitUsage);
    EXPECT_EQ(r.err, "crate07: --output is required (crate07 --help lists the options)\n");
    r = RunBinary("--help");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("render"), std::string::npos);
}

TEST_F(Hardening, SmallImagesReadStraightIntoTheHostImage) {
    struct Case {
        const char* file;
        int width, height;
        std::vector<int> topLeft;  // the file's first pixel, the host's last row
    };
    // Samples of the fixtures: (x * 37 + y * 11 + channel) & 255, widened to 16 bits by 257.
    const Case cases[] = {
        {"rgb-3x2.png", 3, 2, {0, 257, 514, 65535}},
        {"grey-2x2.png", 2, 2, {0, 0, 0, 65535}},
        {"grey-alpha-2x1.png", 2, 1, {0, 0, 0, 257}},
    };
    for (const Case& c : cases) {
        HostRef<Image> image(LoadImageFile(kImages + c.file));
        ASSERT_EQ(image->width, c.width);
        ASSERT_EQ(image->height, c.height);
        const uint16_t* p = image->Row(c.height - 1);
        EXPECT_EQ(std::vector<int>(p, p + 4), c.topLeft) << c.file;
    }
    // The second pixel of the bottom row of the RGB picture: x 1, y 1 of the file.
    HostRef<Image> rgb(LoadImageFile(kImages + "rgb-3x2.png"));
    const uint16_t* p = rgb->Row(0) + 4;
    EXPECT_EQ(std::vector<int>(p, p + 4), (std::vector<int>{48 * 257, 49 * 257, 50 * 257, 65535}));
}

TEST_F(Hardening, FlowsRefuseFramesBeyondTheLimitAndUnknownPresetKeys) {
    const json base = {
        {"size", {8, 8}},
        {"nodes",
         {{{"name", "bg"}, {"type", "Background"}},
          {{"name", "fx"}, {"type", "Ripple"}, {"source", "bg"}},
          {{"name", "out"}, {"type", "Saver"}, {"input", "fx"}, {"path", "o.png"}}}}};
    struct Case {
        const char* patch;  // merged into the flow
        const char* message;
    };
    const Case cases[] = {
        {R"({"range": [1, 2147483647]})", "frame numbers are whole numbers from"},
        {R"({"range": [1, 1e20]})", "not 1e+20"},
        {R"({"nodes": [{"name": "in", "type": "Loader", "path": "x.png", "offset": 2147483647}]})",
         "frame numbers are whole numbers from -1000000000 to 1000000000, not 2147483647"},
        {R"({"nodes": [{"name": "in", "type": "Loader", "path": "x.png", "offset": 2147483648}]})",
         "not 2147483648"},
        {R"({"nodes": [{"name": "in", "type": "Loader", "path": "x.png", "offset": 1e20}]})",
         "not 1e+20"},
        {R"({"nodes": [{"name": "rain", "type": "Rain", "source": "bg",
             "press": {"Ren1": 2147483648}}]})",
         "\"press\" 'Ren1': frame numbers are whole numbers"},
        {R"({"nodes": [{"name": "rain", "type": "Rain", "source": "bg",
             "presets": [{"entry": "Rain", "frame": 1, "x": 1}]}]})",
         "unknown key 'x' in a timed preset"},
        {R"({"size": [4294967297, 1]})", "\"size\" is [width, height]"},
        {R"({"size": [32768, 32768]})", "32768x32768 is beyond the limit"},
        {R"({"nodes": [{"name": "b2", "type": "Background", "cell": 4294967297}]})",
         "\"cell\" is a whole number of pixels from 1 to 32768"},
    };
    for (const Case& c : cases) {
        json flow = base;
        json patch = json::parse(c.patch);
        for (auto it = patch.begin(); it != patch.end(); ++it) {
            if (it.key() == "nodes")
                for (const auto& n : it.value())
                    flow["nodes"].push_back(n);
            else
                flow[it.key()] = it.value();
        }
        try {
            Flow::FromJson(flow, "t.json");
            ADD_FAILURE() << c.patch << " was taken";
        } catch (const AppError& e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
    }
}

TEST_F(Hardening, FlowFilesBeyondTheSizeLimitAreRefused) {
    {
        std::ofstream big(Path("big.json"));
        big << "{\"comment\": \"" << std::string(kFlowByteLimit, 'x') << "\"}";
    }
    Outcome r = RunCli({"render", Path("big.json")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err,
              "crate07: cannot read flow '" + Path("big.json") + "': it is larger than 16 MiB\n");
}

// A range of a billion frames starts rendering at once, and an interruption stops it before the
// first frame; the check of its paths keeps no list of a billion names.
TEST_F(Hardening, LongRangesCheckInBoundedTimeAndStopWhenInterrupted) {
    json flow = {
        {"size", {2, 2}},
        {"range", {1, 1000000000}},
        {"nodes",
         {{{"name", "bg"}, {"type", "Background"}},
          {{"name", "out"}, {"type", "Saver"}, {"input", "bg"}, {"path", Path("o_#.png")}}}}};
    auto f = Flow::FromJson(flow, "t.json");
    GetApp()->interrupted.store(true);
    EXPECT_THROW(f->Render(1, 1000000000), Interrupted);
    EXPECT_TRUE(f->Written().empty());
    GetApp()->interrupted.store(false);

    // A Loader in the same sequence collides at once; one far along collides only late, which
    // the per-frame check finds from the patterns alone.
    flow["nodes"].push_back(
        {{"name", "in"}, {"type", "Loader"}, {"path", Path("o_#.png")}, {"offset", 0}});
    EXPECT_THROW(Flow::FromJson(flow, "t.json")->Render(1, 1000000000), AppError);

    struct Case {
        const char* pattern;
        const char* path;
        int64_t lo, hi;
        bool produced;
    };
    const Case cases[] = {
        {"/a/o_#.png", "/a/o_7.png", 1, 9, true},
        {"/a/o_#.png", "/a/o_7.png", 8, 9, false},
        {"/a/o_####.png", "/a/o_0007.png", 1, 1000000000, true},
        {"/a/o_####.png", "/a/o_007.png", 1, 1000000000, false},
        {"/a/o_##.png", "/a/o_-07.png", -10, 0, true},
        {"/a/o_##.png", "/a/o_123.png", 1, 1000, true},
        {"/a/o_##.png", "/a/o_1x3.png", 1, 1000, false},
        {"/a/o_##.png", "/a/p_12.png", 1, 1000, false},
        {"/a/o_#.png", "/a/o_999999999999999.png", 1, 1000000000, false},
        {"/a/still.png", "/a/still.png", 5, 5, true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(PatternProduces(c.pattern, c.path, c.lo, c.hi), c.produced)
            << c.pattern << " " << c.path;
}

// Handles a billion pixels away neither crash the overlay nor grow it beyond half a side.
TEST_F(Hardening, FarHandlesKeepTheOverlayBounded) {
    const char* tools[][2] = {{"Lightning", "Star=1e9,0"},
                              {"Lightning", "Star=-1e30,1e30"},
                              {"Lightning2", "P111=1e9,0"},
                              {"Rain", "Left=1e9,-1e9"},
                              {"Clouds", "Ceer=1e12,0"}};
    for (const auto& t : tools) {
        Outcome r = RunCli({"apply", t[0], "--size", "64x48", "--set", t[1], "--overlay", "-o",
                            Path("o.png"), "-q"});
        if (r.code != 0 && r.err.find("has no input") != std::string::npos) {
            ADD_FAILURE() << t[0] << ": " << r.err;
            continue;
        }
        ASSERT_EQ(r.code, 0) << t[0] << " " << r.err;
        HostRef<Image> shown(LoadImageFile(Path("o.png")));
        EXPECT_EQ(shown->width, 64 + 2 * 32) << t[0];
        EXPECT_EQ(shown->height, 48 + 2 * 32) << t[0];
    }
}

// A glow strength far below zero lights nothing, as zero does; its conversion stays defined.
TEST_F(Hardening, HugeNegativeGlowRendersAsNoGlow) {
    for (const char* tool : {"Lightning", "Lightning2"}) {
        uint64_t hashes[2];
        const char* values[2] = {"GloB=-1e308", "GloB=0"};
        for (int k = 0; k < 2; ++k) {
            Outcome r = RunCli(
                {"apply", tool, "--size", "33x21", "--set", values[k], "-o", Path("g.png"), "-q"});
            ASSERT_EQ(r.code, 0) << r.err;
            HostRef<Image> image(LoadImageFile(Path("g.png")));
            hashes[k] = HashImage(*image.get());
        }
        EXPECT_EQ(hashes[0], hashes[1]) << tool;
    }
}

}  // namespace
