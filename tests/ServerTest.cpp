// The viewer's server on a loopback port: the JSON calls against the host they drive, refusals
// that change nothing, pictures equal to a render of the same flow, a drag of Ripple's light
// handle and its undo, saving inside the served folder only.
#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "app/Describe.h"
#include "app/Flow.h"
#include "app/ImageFiles.h"
#include "app/Server.h"
#include "host/Registration.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char* kFlow = R"({
  "size": [64, 48], "range": [1, 3],
  "nodes": [
    {"name": "bg", "type": "Background", "pattern": "grid", "colour2": [60000, 50000, 20000]},
    {"name": "ripple", "type": "Ripple", "source": "bg", "inputs": {"Doht": 1, "Liht": [0.25, 0.75]}},
    {"name": "sky", "type": "Clouds", "source": "bg"},
    {"name": "rain", "type": "Rain", "source": "bg"},
    {"name": "out", "type": "Saver", "input": "ripple", "path": "out/r_####.png"}
  ]
})";

class ServerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        RegisterPackTools();
        was_ = fs::current_path();
        dir_ = fs::temp_directory_path() /
               ("crate07-server-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        // The server serves the current folder, as `crate07 serve` does.
        fs::current_path(dir_);
        std::ofstream("flow.json") << kFlow;
        ServeOptions o;
        o.flowPath = "flow.json";
        o.port = 0;
        o.webDir = CRATE07_SOURCE_DIR "/web";
        o.maxBody = 4096;
        server_ = std::make_unique<ViewerServer>(o);
        port_ = server_->Bind();
        thread_ = std::thread([this] { server_->Run(); });
        client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
        // The server answers once its loop runs; a bounded wait.
        for (int i = 0; i < 200 && !client_->Get("/api/job"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    void TearDown() override {
        server_->Stop();
        thread_.join();
        server_.reset();
        fs::current_path(was_);
        fs::remove_all(dir_);
    }

    // A call answered in JSON; the status must be `status`.
    json Call(const std::string& method, const std::string& path, const std::string& body = "",
              int status = 200) {
        auto res = method == "GET" ? client_->Get(path.c_str())
                                   : client_->Post(path.c_str(), body, "application/json");
        EXPECT_TRUE(res) << path;
        if (!res) return json();
        EXPECT_EQ(res->status, status) << path << " " << body << " -> " << res->body;
        return json::parse(res->body, nullptr, false);
    }
    json Post(const std::string& path, const json& body, int status = 200) {
        return Call("POST", path, body.dump(), status);
    }
    std::string Picture(const std::string& query) {
        auto res = client_->Get(("/api/render?" + query).c_str());
        EXPECT_TRUE(res && res->status == 200) << query << (res ? " " + res->body : "");
        return res ? res->body : "";
    }
    json Values(const std::string& node) { return Call("GET", "/api/node?node=" + node)["values"]; }

    fs::path was_, dir_;
    std::unique_ptr<ViewerServer> server_;
    std::unique_ptr<httplib::Client> client_;
    std::thread thread_;
    int port_ = 0;
};

TEST_F(ServerTest, DescribesToolsAndFlowAsTheCommandLineDoes) {
    json tools = Call("GET", "/api/tools");
    ASSERT_TRUE(tools.is_array());
    for (const json& t : tools)
        EXPECT_EQ(t, DescribeTool(t["name"].get<std::string>())) << t["name"];
    json flow = Call("GET", "/api/flow");
    EXPECT_EQ(flow["range"], json({1.0, 3.0}));
    ASSERT_EQ(flow["nodes"].size(), 5u);
    EXPECT_EQ(flow["nodes"][1]["wires"], json({{"Clip to Ripple", "bg"}}));
    EXPECT_EQ(flow["nodes"][4]["wires"], json({{"Input", "ripple"}}));
    // Only the particle tool steps a state of its own from render to render.
    EXPECT_EQ(flow["nodes"][1]["keeps_state"], false);
    EXPECT_EQ(flow["nodes"][2]["keeps_state"], false);
    EXPECT_EQ(flow["nodes"][3]["keeps_state"], true);
}

TEST_F(ServerTest, RefusedValuesNameTheFaultAndChangeNothing) {
    const json before = Values("ripple");
    struct Case {
        std::string body;
        int status;
        const char* says;
    };
    const Case cases[] = {
        {R"({"node": "ripple", "values": {"XYmp": 101}})", 400, "above the allowed range 0 to 100"},
        {R"({"node": "ripple", "values": {"XYmp": 5, "Fide": 7}})", 400,
         "entry 7 is not an index from 0 to 2"},
        {R"({"node": "ripple", "values": {"Liht": 0.5}})", 400, "is a point: give [x, y]"},
        {R"({"node": "ripple", "values": {"Uste": 1}, "key": true})", 400,
         "takes part in no animation"},
        {R"({"node": "ripple", "values": {"XYpm": 1}})", 400,
         "no input 'XYpm' (did you mean 'XYmp'?)"},
        {R"({"node": "rippel", "values": {"XYmp": 1}})", 400, "no node 'rippel'"},
        {R"({"node": "bg", "values": {"XYmp": 1}})", 400, "is a Background, not a tool"},
        {R"({"node": "rain", "values": {"Ren1": 1}})", 400, "is a button: press it"},
        {R"({"node": "ripple", "values": {"XYmp": 1})", 400, "malformed JSON"},
        {R"([1, 2])", 400, "must be a JSON object"},
        {R"({"node": "ripple"})", 400, "{input ID: value, ...}"},
        {R"({"node": "ripple", "values": {"XYmp": 5}, "key": "yes"})", 400, "wrong type"},
        {std::string(5000, ' '), 413, ""},
    };
    for (const Case& c : cases) {
        auto res = client_->Post("/api/set", c.body, "application/json");
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, c.status) << c.body;
        EXPECT_NE(res->body.find(c.says), std::string::npos) << c.body << " -> " << res->body;
    }
    EXPECT_EQ(Values("ripple"), before);
    EXPECT_TRUE(Call("GET", "/api/flow")["undo"].empty());
}

TEST_F(ServerTest, PictureMatchesARenderOfTheSavedFlow) {
    Post("/api/set", {{"node", "ripple"}, {"values", {{"XYmp", 35}, {"Reon", 2.5}}}});
    const std::string png8 = Picture("node=ripple&frame=2");
    const std::string png16 = Picture("node=ripple&frame=2&bits=16");
    // Bit depth and colour type of the header: 8-bit RGB for display, 16-bit RGBA on request.
    ASSERT_GT(png8.size(), 26u);
    EXPECT_EQ(png8.substr(1, 3), "PNG");
    EXPECT_EQ(png8[24], 8);
    EXPECT_EQ(png8[25], 2);
    EXPECT_EQ(png16[24], 16);
    EXPECT_EQ(png16[25], 6);
    std::ofstream("shown.png", std::ios::binary) << png16;
    HostRef<Image> shown(LoadImageFile("shown.png"));

    Post("/api/save", {{"path", "saved.json"}});
    auto flow = Flow::Load("saved.json");
    HostRef<Image> direct(flow->RenderNode("ripple", 2));
    EXPECT_EQ(HashImage(*shown.get()), HashImage(*direct.get()));
    // A change of value changes the picture; the same value again gives it back.
    Post("/api/set", {{"node", "ripple"}, {"values", {{"XYmp", 60}}}});
    EXPECT_NE(Picture("node=ripple&frame=2"), png8);
    Post("/api/set", {{"node", "ripple"}, {"values", {{"XYmp", 35}}}});
    EXPECT_EQ(Picture("node=ripple&frame=2"), png8);
}

TEST_F(ServerTest, DragOfTheLightHandleMovesLightAndUndoRestoresIt) {
    Picture("node=ripple&frame=1");  // the view learns the picture's size, 64 x 48
    json down = Post("/api/pointer", {{"node", "ripple"}, {"event", "down"}, {"x", 16}, {"y", 36}});
    EXPECT_EQ(down["hit"], true);
    EXPECT_EQ(down["input"], "Liht");
    json move = Post("/api/pointer", {{"node", "ripple"}, {"event", "move"}, {"x", 48}, {"y", 12}});
    EXPECT_EQ(move["written"], json({{"Liht", {0.75, 0.25}}}));
    json up = Post("/api/pointer", {{"node", "ripple"}, {"event", "up"}, {"x", 48}, {"y", 12}});
    EXPECT_EQ(up["undo"], json({"ripple: Light"}));
    EXPECT_EQ(Values("ripple")["Liht"]["value"], json({0.75, 0.25}));

    EXPECT_EQ(Post("/api/undo", json::object())["done"], true);
    EXPECT_EQ(Values("ripple")["Liht"]["value"], json({0.25, 0.75}));
    EXPECT_EQ(Post("/api/undo", json::object())["done"], false);
    EXPECT_EQ(Post("/api/redo", json::object())["done"], true);
    EXPECT_EQ(Values("ripple")["Liht"]["value"], json({0.75, 0.25}));
    // A press away from every handle hits nothing and writes nothing.
    json miss = Post("/api/pointer", {{"node", "ripple"}, {"event", "down"}, {"x", 30}, {"y", 30}});
    EXPECT_EQ(miss["hit"], false);
    EXPECT_TRUE(miss["written"].empty());
}

TEST_F(ServerTest, PresetAndButtonRunTheToolsOwnHandlers) {
    // A preset writes what choosing it in a flow file writes.
    json chosen = Post("/api/preset", {{"node", "sky"}, {"entry", "Lit3"}});
    EXPECT_FALSE(chosen["written"].empty());
    auto reference = Flow::FromJson(
        json::parse(R"({"size": [64, 48], "nodes": [{"name": "bg", "type": "Background"},
                      {"name": "sky", "type": "Clouds", "source": "bg", "preset": "Lit3"}]})"),
        "reference");
    for (Input* in : reference->ToolOf("sky")->Inputs()) {
        if (in->GetDataType() == Input::DataType::Image) continue;
        EXPECT_EQ(chosen["values"][in->ID().str()]["value"], InputValueToJson(in))
            << in->ID().str();
    }
    Post("/api/preset", {{"node", "sky"}, {"entry", "Lit9"}}, 400);
    Post("/api/preset", {{"node", "ripple"}, {"entry", "Lit3"}}, 400);
    // A button springs back to 0 and leaves one undo step.
    json pressed = Post("/api/press", {{"node", "rain"}, {"input", "Ren1"}});
    EXPECT_EQ(pressed["values"]["Ren1"]["value"], 0.0);
    EXPECT_EQ(pressed["undo"].back(), "rain: Restart Rain");
    Post("/api/press", {{"node", "rain"}, {"input", "Dem1"}}, 400);
}

TEST_F(ServerTest, KeysAnimateAndFromStartRestartsStatefulTools) {
    Post("/api/set", {{"node", "ripple"}, {"values", {{"XYmp", 10}}}, {"frame", 1}, {"key", true}});
    json s = Post("/api/set",
                  {{"node", "ripple"}, {"values", {{"XYmp", 30}}}, {"frame", 3}, {"key", true}});
    EXPECT_EQ(s["values"]["XYmp"]["keys"], json({1.0, 3.0}));
    EXPECT_EQ(Call("GET", "/api/node?node=ripple&frame=2")["values"]["XYmp"]["value"], 20.0);
    Post("/api/remove-key", {{"node", "ripple"}, {"input", "XYmp"}, {"frame", 3}});
    EXPECT_EQ(Values("ripple")["XYmp"]["keys"], json({1.0}));

    // Rain steps once a render: frame 3 from the start equals the third render of a fresh flow.
    const std::string fresh3 = Picture("node=rain&frame=3&from_start=1");
    const std::string again = Picture("node=rain&frame=3");
    EXPECT_NE(again, fresh3);
    EXPECT_EQ(Picture("node=rain&frame=3&from_start=1"), fresh3);
    EXPECT_EQ(client_->Get("/api/render?node=rain&frame=9&from_start=1")->status, 400);
}

TEST_F(ServerTest, FilesStayInsideTheServedFolder) {
    struct Case {
        const char* path;
        const char* says;
    };
    const Case cases[] = {
        {"../escape.json", "leads outside the folder"},
        {"/tmp/escape.json", "must be relative"},
        {"sub/../../escape.json", "leads outside the folder"},
        {"flow.txt", "must end in .json"},
    };
    for (const Case& c : cases) {
        json r = Post("/api/save", {{"path", c.path}}, 400);
        EXPECT_NE(r["error"].get<std::string>().find(c.says), std::string::npos) << c.path;
    }
    EXPECT_FALSE(fs::exists(dir_.parent_path() / "escape.json"));
    Post("/api/loader", {{"node", "bg"}, {"path", "x.png"}}, 400);
    auto up = client_->Post("/api/upload?name=../x.png", "abc", "image/png");
    ASSERT_TRUE(up);
    EXPECT_EQ(up->status, 400);
    EXPECT_EQ(Call("GET", "/api/nothing", "", 404)["error"], "no such call '/api/nothing'");
    // Rendering to files: the Saver's frames, with progress to the end.
    Post("/api/render-files", {{"first", 1}, {"last", 2}});
    json job;
    for (int i = 0; i < 500; ++i) {
        job = Call("GET", "/api/job");
        if (!job["running"].get<bool>()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(job["error"], "");
    EXPECT_EQ(job["done"], 2);
    EXPECT_EQ(job["written"], json({"out/r_0001.png", "out/r_0002.png"}));
    EXPECT_TRUE(fs::exists("out/r_0002.png"));
}

}  // namespace
