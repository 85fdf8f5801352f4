// Flow files: parsing and checking, wiring, animation, sequences, and what a failed or interrupted
// render leaves behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <nlohmann/json.hpp>

#include "app/AppError.h"
#include "app/Flow.h"
#include "app/ImageFiles.h"
#include "app/Patterns.h"
#include "host/App.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

class FlowTest : public ::testing::Test {
  protected:
    void SetUp() override {
        RegisterTestTool();
        GetApp()->interrupted.store(false);
        dir = ScratchDir(std::string("crate07-flow-") +
                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override {
        GetApp()->interrupted.store(false);
        fs::remove_all(dir);
    }
    std::string Path(const std::string& name) const { return (dir / name).string(); }

    // The message of the AppError that building (and rendering frames 1..1) the flow throws.
    std::string ErrorOf(const json& flow) {
        try {
            auto f = Flow::FromJson(flow, "t.json");
            f->Render(1, 1);
        } catch (const AppError& e) {
            return e.what();
        }
        return "";
    }

    int RedAt(const std::string& path) {
        HostRef<Image> image(LoadImageFile(path));
        return image->Row(0)[0];
    }

    json Basic(json tool) {
        tool["name"] = "fx";
        tool["type"] = "Test";
        tool["source"] = "bg";
        return {
            {"size", {4, 2}},
            {"range", {1, 3}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}, {"colour", {20000, 0, 0, 65535}}},
              tool,
              {{"name", "out"}, {"type", "Saver"}, {"input", "fx"}, {"path", Path("f_#.png")}}}}};
    }

    fs::path dir;
};

TEST_F(FlowTest, MalformedJsonIsReportedWithLineAndColumn) {
    std::ofstream(Path("bad.json")) << "{\n  \"nodes\": [\n    {\"name\": \"a\",, }\n  ]\n}\n";
    try {
        Flow::Load(Path("bad.json"));
        FAIL() << "no error";
    } catch (const AppError& e) {
        EXPECT_EQ(std::string(e.what()).rfind(Path("bad.json") + ":3:18: malformed flow", 0), 0u)
            << e.what();
    }
    try {
        Flow::Load(Path("none.json"));
        FAIL() << "no error";
    } catch (const AppError& e) {
        EXPECT_NE(std::string(e.what()).find("no such file"), std::string::npos);
    }
}

TEST_F(FlowTest, FaultsNameTheNodeAndTheInput) {
    auto expect = [&](const json& flow, const std::string& part) {
        std::string message = ErrorOf(flow);
        EXPECT_NE(message.find(part), std::string::npos) << "got: " << message;
    };
    json flow = Basic({});
    flow["nodes"][1]["type"] = "Tesst";
    expect(flow, "node 'fx': unknown type 'Tesst' (did you mean 'Test'?)");
    for (const auto& row : ToolClassTable()) {
        if (row.factory) continue;
        flow = Basic({});
        flow["nodes"][1]["type"] = row.name + 2;
        expect(flow,
               std::string("the tool '") + (row.name + 2) + "' is not available in this build yet");
        break;
    }
    flow = Basic({});
    flow["nodes"][1]["source"] = "bgg";
    expect(flow, "\"source\" names no node 'bgg' (did you mean 'bg'?)");
    flow = Basic({});
    flow["nodes"][1].erase("source");
    expect(flow, "node 'fx': the required image input 'Source' is not connected");
    expect(Basic({{"connect", {{"Mate", "bg"}}}}),
           "has no image input 'Mate' (did you mean 'Matte'?)");
    expect(Basic({{"inputs", {{"Invt", {{"keys", {{1, 0}, {2, 1}}}}}}}}),
           "input 'Invt' (Invert) takes part in no animation");
    expect(Basic({{"inputs", {{"Gain", {{"keys", {{1, 0.5}, {1, 1}}}}}}}}), "two keys at frame 1");
    expect(Basic({{"inputs", {{"Cent", 3}}}}), "input 'Cent' (Centre) is a point: give [x, y]");
    expect(Basic({{"inputs", {{"Gain", -1}}}}), "is below the allowed range 0 to 4");
    flow = Basic({});
    flow["nodes"][0]["pattern"] = "stripes";
    expect(flow, "node 'bg': unknown pattern 'stripes'");
    flow = Basic({});
    flow["nodes"][2]["input"] = "out";
    expect(flow, "\"input\" names the Saver 'out', which has no output");
    flow = Basic({});
    flow["nodes"][1]["source"] = "fx";
    expect(flow, "\"source\" names the node itself");
    flow = Basic({});
    flow["nodes"].push_back(
        {{"name", "out2"}, {"type", "Saver"}, {"input", "bg"}, {"path", Path("f_#.png")}});
    expect(flow, "writes '" + Path("f_1.png") + "' as the Saver 'out' does");
    flow = Basic({});
    flow["nodes"][1]["name"] = "bg";
    expect(flow, "two nodes are named 'bg'");
    flow = Basic({});
    flow["nodes"].erase(2);
    expect(flow, "the flow has no Saver node");
    flow = Basic({});
    flow["nodes"][1]["connect"] = {{"Matte", "fx2"}};
    flow["nodes"].push_back({{"name", "fx2"}, {"type", "Test"}, {"source", "fx"}});
    expect(flow, "the wires form a loop");
    expect({{"nodes", json::array()}}, "\"nodes\" must be a list of at least one node");
    expect({{"nodes", {{{"name", "a"}}}}}, "node 'a': needs a \"type\"");
    expect({{"nodez", 1}}, "unknown key 'nodez'");
}

TEST_F(FlowTest, FramesRenderInOrderWithAnimatedValues) {
    // Gain runs linearly from 0.5 at frame 1 to 1.5 at frame 3; 20000 imports as 10000.
    json flow = Basic({{"inputs", {{"Gain", {{"keys", {{1, 0.5}, {3, 1.5}}}}}}}});
    auto f = Flow::FromJson(flow, "t.json");
    std::vector<int> seen;
    f->Render(1, 3, [&](int done, int total) {
        EXPECT_EQ(total, 3);
        seen.push_back(done);
    });
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(RedAt(Path("f_1.png")), 10000);  // 5000 exported
    EXPECT_EQ(RedAt(Path("f_2.png")), 20000);  // 10000
    EXPECT_EQ(RedAt(Path("f_3.png")), 30000);  // 15000
    EXPECT_EQ(f->Written().size(), 3u);
    // One instance rendered all three, in time order.
    auto* op = static_cast<TestOperator*>(f->ToolOf("fx"));
    EXPECT_EQ(op->Test()->renders, 3);
    EXPECT_EQ(op->Test()->firstFrames, 1);

    // Smooth keys pass through the keys; the colour by its label sets three channels.
    json smooth = Basic({{"inputs",
                          {{"Gain", {{"keys", {{1, 0.5, "smooth"}, {3, 1.5}}}}},
                           {"Tint", {0.0, 0.0, 0.0}},
                           {"Mode", "Add"}}}});
    smooth["nodes"][2]["path"] = Path("s_#.png");
    Flow::FromJson(smooth, "t.json")->Render(1, 3);
    EXPECT_EQ(RedAt(Path("s_1.png")), 10000);
    EXPECT_EQ(RedAt(Path("s_2.png")), 20000);  // halfway, by symmetry
    EXPECT_EQ(RedAt(Path("s_3.png")), 30000);
}

TEST_F(FlowTest, SequencesLoadByFrameAndAFailureKeepsEarlierFrames) {
    PatternSpec spec;
    spec.width = 2;
    spec.height = 2;
    for (int f = 1; f <= 2; ++f) {
        spec.colour[0] = static_cast<uint16_t>(f * 1000);
        HostRef<Image> image(MakePattern(spec));
        SaveImageFile(*image.get(), Path("in." + std::to_string(f) + ".png"));
    }
    json flow = {
        {"range", {1, 3}},
        {"nodes",
         {{{"name", "plate"}, {"type", "Loader"}, {"path", Path("in.#.png")}},
          {{"name", "fx"}, {"type", "Test"}, {"source", "plate"}},
          {{"name", "out"}, {"type", "Saver"}, {"input", "fx"}, {"path", Path("o.#.png")}}}}};
    auto f = Flow::FromJson(flow, "t.json");
    try {
        f->Render(1, 3);
        FAIL() << "frame 3 has no input";
    } catch (const AppError& e) {
        EXPECT_NE(std::string(e.what()).find("node 'plate' at frame 3: cannot read image '" +
                                             Path("in.3.png") + "': no such file"),
                  std::string::npos)
            << e.what();
    }
    EXPECT_EQ(RedAt(Path("o.1.png")), 1000);
    EXPECT_EQ(RedAt(Path("o.2.png")), 2000);
    EXPECT_FALSE(fs::exists(Path("o.3.png")));

    // A saver that would write over a frame the loader reads is refused before anything renders.
    flow["nodes"][2]["path"] = Path("in.#.png");
    EXPECT_NE(ErrorOf(flow).find("would overwrite '" + Path("in.1.png") + "'"), std::string::npos);
}

TEST_F(FlowTest, AMatteOfAnotherSizeReachesTheToolAtTheSourceSize) {
    json flow = Basic({{"connect", {{"Matte", "small"}}}});
    flow["nodes"].push_back(
        {{"name", "small"}, {"type", "Background"}, {"size", {2, 2}}, {"colour", {0, 0, 0, 0}}});
    auto f = Flow::FromJson(flow, "t.json");
    f->Render(1, 1);
    const TestEngine* engine = static_cast<TestOperator*>(f->ToolOf("fx"))->Test();
    EXPECT_TRUE(engine->sawMatte);
    EXPECT_EQ(engine->secondWidth, 4);
    EXPECT_EQ(engine->secondHeight, 2);
    // The test tool gives its output the matte's alpha: clear, where the source is opaque.
    HostRef<Image> image(LoadImageFile(Path("f_1.png")));
    ASSERT_EQ(image->width, 4);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(image->Row(y)[x * 4 + 3], 0) << x << "," << y;
}

TEST_F(FlowTest, AnInterruptionStopsTheFrameAndKeepsTheFramesBefore) {
    auto f = Flow::FromJson(Basic({}), "t.json");
    // The interruption arrives after frame 1: frame 2 is not begun, frame 1 stays.
    EXPECT_THROW(f->Render(1, 3,
                           [&](int done, int) {
                               if (done == 1) GetApp()->interrupted.store(true);
                           }),
                 Interrupted);
    EXPECT_TRUE(fs::exists(Path("f_1.png")));
    EXPECT_FALSE(fs::exists(Path("f_2.png")));
    EXPECT_EQ(f->Written().size(), 1u);
}

TEST_F(FlowTest, ThePresetComesFirstAndValuesOverrideIt) {
    json flow = Basic({{"preset", "First"}, {"inputs", {{"Gain", 1.0}}}});
    auto f = Flow::FromJson(flow, "t.json");
    auto* op = static_cast<TestOperator*>(f->ToolOf("fx"));
    // The handler ran once, for the preset, at the first frame of the range.
    ASSERT_EQ(op->Test()->calls.size(), 2u);  // the preset, then the Invert it wrote
    EXPECT_STREQ(op->Test()->calls[0].input, "Demo");
    EXPECT_EQ(op->Test()->calls[0].time, 1.0);
    f->Render(1, 1);
    // Gain 1.0 from the flow, Invert on from the preset: 32767 - 10000.
    EXPECT_EQ(RedAt(Path("f_1.png")), (22767 >> 14) | (22767 * 2));
}

}  // namespace
