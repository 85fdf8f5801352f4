// The command line run in-process on the test tool: listing, describing, applying, and the errors a
// user meets.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/Cli.h"
#include "app/ImageFiles.h"
#include "host/App.h"
#include "host/Parameters.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;

namespace {

struct Result {
    int code;
    std::string out, err;
};

Result RunCli(std::vector<std::string> args) {
    args.insert(args.begin(), "crate07");
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    std::ostringstream out, err;
    int code = RunCommandLine(static_cast<int>(argv.size()), argv.data(), out, err);
    return {code, out.str(), err.str()};
}

class CliTest : public ::testing::Test {
  protected:
    void SetUp() override {
        RegisterTestTool();
        dir = ScratchDir(std::string("crate07-cli-") +
                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string Path(const std::string& name) const { return (dir / name).string(); }

    // The first pixel of a written file, as 16-bit samples.
    std::vector<int> FirstPixel(const std::string& path) const {
        HostRef<Image> image(LoadImageFile(path));
        const uint16_t* p = image->Row(0);
        return {p[0], p[1], p[2], p[3]};
    }

    fs::path dir;
};

TEST_F(CliTest, ToolsAndDescribeComeFromTheRegistrationAndTheTable) {
    Result tools = RunCli({"tools"});
    EXPECT_EQ(tools.code, 0);
    EXPECT_NE(tools.out.find("Q9Test        TST   A tool for tests.\n"), std::string::npos)
        << tools.out;

    // Any case, registered or plain name.
    Result json = RunCli({"describe", "TEST", "--json"});
    ASSERT_EQ(json.code, 0) << json.err;
    EXPECT_EQ(nlohmann::json::parse(json.out)["name"], "Q9Test");
    Result text = RunCli({"describe", "Q9Test"});
    ASSERT_EQ(text.code, 0) << text.err;
    // Both descriptions in full, as golden hashes; printed on a mismatch.
    EXPECT_EQ(HashText(json.out), 0x5cc7ebc23a73f412ull) << std::hex << HashText(json.out) << "\n"
                                                         << json.out;
    EXPECT_EQ(HashText(text.out), 0x80780e9307c4a31bull) << std::hex << HashText(text.out) << "\n"
                                                         << text.out;

    Result unknown = RunCli({"describe", "Tets"});
    EXPECT_EQ(unknown.code, 1);
    EXPECT_NE(unknown.err.find("unknown tool 'Tets' (did you mean 'Test'?)"), std::string::npos)
        << unknown.err;
    // A tool of the pack whose engine is not built yet is named as such.
    for (const auto& row : ToolClassTable()) {
        if (row.factory) continue;
        Result later = RunCli({"describe", row.name + 2});
        EXPECT_EQ(later.code, 1);
        EXPECT_NE(later.err.find("not available in this build yet"), std::string::npos);
        break;
    }
}

TEST_F(CliTest, ApplyRendersValuesPresetsAndFrames) {
    // 1000 imports as 500; Gain 0.5 gives 250; exported as (250 >> 14) | 500 = 500.
    Result r = RunCli({"apply", "Test", "-o", Path("half.png"), "--size", "8x4", "--colour",
                       "1000,2000,3000,65535", "--set", "Gain=0.5", "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(FirstPixel(Path("half.png")), (std::vector<int>{500, 1000, 1500, 65535}));

    // The preset "First" writes Gain 0.25 and Invert on: 32767 - trunc(500 * 0.25) = 32642.
    r = RunCli({"apply", "test", "-o", Path("preset.tif"), "--size", "3x2", "--colour",
                "1000,1000,1000,65535", "--preset", "First", "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(FirstPixel(Path("preset.tif"))[0], (32642 >> 14) | (32642 * 2));
    // A value given with --set wins over the preset.
    r = RunCli({"apply", "test", "-o", Path("override.png"), "--size", "3x2", "--colour",
                "1000,1000,1000,65535", "--preset", "First", "--set", "Invt=0", "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(FirstPixel(Path("override.png"))[0], 250);

    // A combo by its entry text, a range of frames into a numbered run, an EXR output.
    r = RunCli({"apply", "Test", "-o", Path("seq_##.exr"), "--size", "4x4", "--set", "Mode=Add",
                "--frames", "2-4", "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* name : {"seq_02.exr", "seq_03.exr", "seq_04.exr"})
        EXPECT_TRUE(fs::exists(Path(name))) << name;
    EXPECT_FALSE(fs::exists(Path("seq_01.exr")));
    // Tint (1, 0.5, 0) added to black: 32767 and 16383 as samples, through half floats.
    std::vector<int> added = FirstPixel(Path("seq_03.exr"));
    EXPECT_EQ(added[0], 65535);
    EXPECT_NEAR(added[1], 32767, 16);
    EXPECT_EQ(added[2], 0);

    // A further image input from a file; the output keeps its alpha (the matte's).
    r = RunCli({"apply", "Test", "-o", Path("matte.png"), "--size", "4x4", "--colour",
                "0,0,0,65535", "-q"});
    ASSERT_EQ(r.code, 0);
    r = RunCli({"apply", "Test", "-o", Path("with_matte.png"), "--size", "4x4", "--input",
                "Matte=" + Path("matte.png"), "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(FirstPixel(Path("with_matte.png"))[3], 65535);
    // No temporary files are left behind.
    for (const auto& entry : fs::directory_iterator(dir))
        EXPECT_EQ(entry.path().filename().string().find(".part-"), std::string::npos);
}

TEST_F(CliTest, BadInputGetsAOneLineErrorAndNothingIsLost) {
    auto fails = [&](std::vector<std::string> args, const std::string& expected) {
        Result r = RunCli(args);
        EXPECT_NE(r.code, 0) << expected;
        EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    };
    const std::string out = Path("out.png");
    fails({"apply", "Tst", "-o", out, "--size", "2x2"}, "did you mean 'Test'?");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--set", "Gian=1"},
          "has no input 'Gian' (did you mean 'Gain'?)");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--set", "Gain=5"},
          "input 'Gain' (Gain) = 5 is above the allowed range 0 to 4");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--set", "Mode=Multiply"},
          "has no entry \"Multiply\"");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--set", "Invt=2"},
          "is a checkbox: give 0 or 1");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--set", "Seed=1.5"},
          "takes a whole number");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--preset", "Third"},
          "has no entry \"Third\"");
    fails({"apply", "Test", "-o", out, "-i", Path("missing.png")},
          "cannot read image '" + Path("missing.png") + "': no such file");
    fails({"apply", "Test", "-o", Path("out.jpg"), "--size", "2x2"},
          "unsupported output format '.jpg'");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--frames", "1-3"},
          "has no run of '#' for the frame number");
    fails({"apply", "Test", "-o", out, "--size", "2x"}, "--size '2x' is not of the form WxH");
    fails({"apply", "Test", "-o", out, "--size", "2x2", "--frames", "5-1"},
          "ends before it starts");
    fails({"apply", "Test", "-o", out}, "apply needs a picture");

    // An unreadable image is named.
    std::ofstream(Path("junk.png")) << "not a picture";
    fails({"apply", "Test", "-o", out, "-i", Path("junk.png")},
          "cannot read image '" + Path("junk.png") + "'");

    // An output inside a plain file cannot be written.
    std::ofstream(Path("file")) << "x";
    fails({"apply", "Test", "-o", Path("file/out.png"), "--size", "2x2"},
          "cannot write '" + Path("file/out.png") + "'");

    // The input is never overwritten.
    ASSERT_EQ(RunCli({"apply", "Test", "-o", Path("in.png"), "--size", "2x2", "-q"}).code, 0);
    auto before = fs::last_write_time(Path("in.png"));
    fails({"apply", "Test", "-i", Path("in.png"), "-o", Path("in.png")}, "would overwrite");
    EXPECT_EQ(fs::last_write_time(Path("in.png")), before);
}

}  // namespace

namespace {

TEST_F(CliTest, ButtonsTimedPresetsAndRenderingFromTheStart) {
    auto red = [&](const std::string& name) { return FirstPixel(Path(name))[0]; };
    // "Count" keeps a count of renders, as the particle tools keep their particles: frame k of a
    // run from frame 1 holds k, exported as 2k.
    ASSERT_EQ(RunCli({"apply", "Test", "--size", "2x2", "--set", "Mode=Count", "--frames", "1-5",
                      "-o", Path("a_#.png"), "-q"})
                  .code,
              0);
    EXPECT_EQ(red("a_1.png"), 2);
    EXPECT_EQ(red("a_5.png"), 10);
    // Frames 4-5 alone start from an empty state; with --from-start they equal the full run.
    ASSERT_EQ(RunCli({"apply", "Test", "--size", "2x2", "--set", "Mode=Count", "--frames", "4-5",
                      "-o", Path("b_#.png"), "-q"})
                  .code,
              0);
    EXPECT_EQ(red("b_4.png"), 2);
    Result r = RunCli({"apply", "Test", "--size", "2x2", "--set", "Mode=Count", "--frames", "4-5",
                       "--from-start", "-o", Path("c_#.png"), "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(red("c_4.png"), red("a_4.png"));
    EXPECT_EQ(red("c_5.png"), red("a_5.png"));
    EXPECT_FALSE(fs::exists(Path("c_3.png")));

    // A button pressed before frame 3 renders starts the count again.
    r = RunCli({"apply", "Test", "--size", "2x2", "--set", "Mode=Count", "--frames", "1-5",
                "--press", "Bump@3", "-o", Path("p_#.png"), "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(red("p_2.png"), 4);
    EXPECT_EQ(red("p_3.png"), 2);
    EXPECT_EQ(red("p_5.png"), 6);

    // A preset chosen before frame 2: Gain 0.25 and Invert from then on.
    r = RunCli({"apply", "Test", "--size", "2x2", "--colour", "1000,1000,1000,65535", "--preset",
                "First@2", "--frames", "1-2", "-o", Path("q_#.png"), "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(red("q_1.png"), 1000);
    EXPECT_EQ(red("q_2.png"), (32642 >> 14) | (32642 * 2));

    r = RunCli({"apply", "Test", "--size", "2x2", "--press", "Bmp@2", "-o", Path("x.png")});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("has no button 'Bmp' (did you mean 'Bump'?)"), std::string::npos) << r.err;
}

}  // namespace

namespace {

TEST_F(CliTest, ControlsReportLineWorkAndDrags) {
    // The test tool's one control is a cross at "Centre"; the picture is 100x50.
    Result r = RunCli({"controls", "Test", "--size", "100x50", "--set", "Cent=0.2,0.4", "--drag",
                       "20,20:60,10", "--drag", "1,1:5,5", "--json"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto report = nlohmann::json::parse(r.out);
    bool handle = false;
    for (const auto& l : report["lines"])
        if (l["mode"] == "loop") {
            // The handle's square, 8 view pixels wide, around (20, 20).
            EXPECT_EQ(l["points"][0], nlohmann::json({16.0, 16.0}));
            EXPECT_EQ(l["points"][2], nlohmann::json({24.0, 24.0}));
            handle = true;
        }
    EXPECT_TRUE(handle);
    const auto& drag = report["drags"][0];
    EXPECT_EQ(drag["hovered"]["input"], "Cent");
    EXPECT_EQ(drag["written"]["Cent"], nlohmann::json({0.6, 0.2}));
    EXPECT_EQ(drag["undo"], nlohmann::json({"Test: Centre"}));
    EXPECT_TRUE(report["drags"][1]["hovered"].is_null());
    EXPECT_TRUE(report["drags"][1]["written"].empty());

    // The overlay drawn into a picture: the handle's outline in white over black.
    r = RunCli({"apply", "Test", "--size", "100x50", "--colour", "0,0,0,65535", "--overlay", "-o",
                Path("overlay.png"), "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    HostRef<Image> shown(LoadImageFile(Path("overlay.png")));
    EXPECT_EQ(shown->Row(21)[46 * 4], 65535);  // the square's left side, x = 46, y = 21
    EXPECT_EQ(shown->Row(5)[5 * 4], 0);

    r = RunCli({"controls", "Test", "--drag", "1,2"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("--drag '1,2' is not of the form X1,Y1:X2,Y2"), std::string::npos);
}

}  // namespace
