#include "app/Server.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "app/AppError.h"
#include "app/Controls.h"
#include "app/Describe.h"
#include "app/Flow.h"
#include "app/ServerPng.h"
#include "frame/ToolOperator.h"
#include "host/App.h"
#include "host/Registry.h"
#include "host/ToolTraits.h"

namespace fs = std::filesystem;
using nlohmann::json;

const char* DefaultViewerFlow() {
    return R"({
  "comment": "A test picture under a Ripple: drag its handles in the viewer.",
  "size": [720, 486],
  "range": [1, 50],
  "nodes": [
    {"name": "picture", "type": "Background", "pattern": "bars"},
    {"name": "ripple", "type": "Ripple", "source": "picture"}
  ]
})";
}

namespace {

// A refusal the page shows as it stands; `status` is the HTTP answer.
struct Refused {
    int status;
    std::string message;
};

std::string Quote(const std::string& s) {
    return "'" + s + "'";
}

json ParseBody(const httplib::Request& req) {
    if (req.body.empty()) return json::object();
    try {
        json body = json::parse(req.body);
        if (!body.is_object()) throw AppError("the request body must be a JSON object");
        return body;
    } catch (const json::parse_error& e) {
        std::string what = e.what();
        size_t colon = what.find(": ", what.find("parse error"));
        throw AppError("malformed JSON in the request at byte " + std::to_string(e.byte) + ": " +
                       (colon != std::string::npos ? what.substr(colon + 2) : what));
    }
}

std::string TextField(const json& body, const char* key) {
    if (!body.contains(key) || !body[key].is_string() || body[key].get<std::string>().empty())
        throw AppError(std::string("the request needs \"") + key + "\" (text)");
    return body[key].get<std::string>();
}

double NumberIn(const std::string& what, const std::string& text, double lo, double hi) {
    std::istringstream in(text);
    double v;
    in >> v;
    if (in.fail() || !(in >> std::ws).eof() || !std::isfinite(v) || v < lo || v > hi) {
        std::ostringstream o;
        o << what << " " << Quote(text) << " is not a number from " << lo << " to " << hi;
        throw AppError(o.str());
    }
    return v;
}

int FrameOf(const std::string& what, const json& v) {
    if (!v.is_number() || v.get<double>() != std::floor(v.get<double>()) ||
        std::fabs(v.get<double>()) > 1e6)
        throw AppError(what + " " + v.dump() + " is not a whole frame number");
    return v.get<int>();
}

int FrameParam(const httplib::Request& req, int fallback) {
    if (!req.has_param("frame")) return fallback;
    const double f = NumberIn("frame", req.get_param_value("frame"), -1e6, 1e6);
    if (f != std::floor(f))
        throw AppError("frame " + Quote(req.get_param_value("frame")) +
                       " is not a whole frame number");
    return static_cast<int>(f);
}

bool SameState(const Input::State& a, const Input::State& b) {
    if (a.constant[0] != b.constant[0] || a.constant[1] != b.constant[1] ||
        a.keys.size() != b.keys.size())
        return false;
    for (size_t k = 0; k < a.keys.size(); ++k)
        if (a.keys[k].time != b.keys[k].time || a.keys[k].v[0] != b.keys[k].v[0] ||
            a.keys[k].v[1] != b.keys[k].v[1])
            return false;
    return true;
}

std::string ControlKindOf(const Input* in) {
    return in->Attrs().GetText(kInControlKind);
}

}  // namespace

struct ViewerServer::Impl {
    ServeOptions options;
    fs::path root;
    httplib::Server http;
    int port = 0;

    // The document and everything that touches it.
    std::mutex docMutex;
    std::unique_ptr<Flow> flow;
    std::string origin;
    std::map<std::string, std::pair<int, int>> sizes;  // node -> size of its last picture
    struct View {
        std::unique_ptr<ControlView> view;
        int width = 0, height = 0;
        double zoom = 1.0;
    };
    std::map<std::string, View> views;

    // Renders: the newest request wins.
    std::atomic<uint64_t> renderTicket{0};
    std::mutex toolsMutex;
    std::vector<Operator*> tools;  // the operators a newer render may abort

    // Rendering to files, in the background.
    std::thread job;
    std::atomic<bool> jobRunning{false};
    std::atomic<int> jobDone{0}, jobTotal{0};
    std::mutex jobMutex;
    std::string jobError;
    std::vector<std::string> jobWritten;

    explicit Impl(ServeOptions o) : options(std::move(o)) {
        std::error_code ec;
        root = fs::weakly_canonical(fs::absolute(options.root.empty() ? "." : options.root), ec);
        if (ec || !fs::is_directory(root))
            throw AppError("the folder " + Quote(options.root) + " cannot be served");
        if (options.flowPath.empty()) {
            origin = "the built-in flow";
            Adopt(Flow::FromJson(json::parse(DefaultViewerFlow()), origin));
        } else {
            origin = options.flowPath;
            Adopt(Flow::Load(options.flowPath));
        }
    }

    ~Impl() {
        if (job.joinable()) job.join();
    }

    // A path the request names, inside the served folder. `extensions` lists the endings allowed.
    fs::path Inside(const std::string& path, const std::vector<std::string>& extensions) const {
        if (path.empty()) throw AppError("the path is empty");
        fs::path p(path);
        if (p.is_absolute())
            throw AppError("the path " + Quote(path) +
                           " must be relative to the folder the viewer serves");
        std::error_code ec;
        fs::path full = fs::weakly_canonical(root / p, ec);
        const std::string r = root.string() + "/";
        if (ec || full.string().compare(0, r.size(), r) != 0)
            throw AppError("the path " + Quote(path) +
                           " leads outside the folder the viewer serves");
        if (!extensions.empty()) {
            std::string ext = full.extension().string();
            std::transform(ext.begin(), ext.end(), ext.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            if (std::find(extensions.begin(), extensions.end(), ext) == extensions.end()) {
                std::string list;
                for (const auto& e : extensions)
                    list += (list.empty() ? "" : ", ") + e;
                throw AppError("the path " + Quote(path) + " must end in " + list);
            }
        }
        return full;
    }

    // Takes over a flow, once its files are known to stay inside the folder.
    void Adopt(std::unique_ptr<Flow> next) {
        json j = next->ToJson();
        for (const json& n : j["nodes"])
            if ((n.value("type", "") == "Loader" || n.value("type", "") == "Saver") &&
                n.contains("path") && n["path"].is_string())
                try {
                    Inside(n["path"].get<std::string>(), {});
                } catch (const AppError& e) {
                    throw AppError(origin + ": node " + Quote(n.value("name", "")) + ": " +
                                   e.what());
                }
        views.clear();
        sizes.clear();
        {
            std::lock_guard<std::mutex> lock(toolsMutex);
            tools.clear();
            for (const auto& n : next->Nodes())
                if (n.tool) tools.push_back(n.tool);
        }
        flow = std::move(next);
    }

    // The same flow made anew from its current values: tools that keep state start again.
    void Rebuild() { Adopt(Flow::FromJson(flow->ToJson(), origin)); }

    void AbortRenders() {
        std::lock_guard<std::mutex> lock(toolsMutex);
        for (Operator* op : tools)
            op->SetAbort(true);
    }
    void ClearAborts() {
        std::lock_guard<std::mutex> lock(toolsMutex);
        for (Operator* op : tools)
            op->SetAbort(false);
    }

    Flow::NodeView NodeOf(const std::string& name) const {
        for (auto& n : flow->Nodes())
            if (n.name == name) return n;
        std::vector<std::string> names;
        for (auto& n : flow->Nodes())
            names.push_back(n.name);
        std::string near = Nearest(name, names);
        throw AppError("the flow has no node " + Quote(name) +
                       (near.empty() ? "" : " (did you mean " + Quote(near) + "?)"));
    }
    ToolOperator* ToolOf(const std::string& name) const {
        Flow::NodeView n = NodeOf(name);
        if (!n.tool) throw AppError("the node " + Quote(name) + " is a " + n.kind + ", not a tool");
        return n.tool;
    }
    Input* InputOf(ToolOperator* op, const std::string& node, const std::string& key) const {
        std::vector<Input*> found = FindToolInputs(op, key);
        if (found.size() == 1) return found.front();
        if (found.empty()) {
            std::vector<std::string> ids;
            for (Input* in : op->Inputs())
                ids.push_back(in->ID().str());
            std::string near = Nearest(key, ids);
            throw AppError("node " + Quote(node) + " has no input " + Quote(key) +
                           (near.empty() ? "" : " (did you mean " + Quote(near) + "?)"));
        }
        throw AppError("node " + Quote(node) + ": " + Quote(key) +
                       " names several inputs; use an ID");
    }

    json FlowJson() {
        json nodes = json::array();
        for (const auto& n : flow->Nodes()) {
            json wires = json::object();
            for (const auto& w : n.wires)
                wires[w.first] = w.second;
            json node = {{"name", n.name}, {"type", n.type}, {"kind", n.kind}, {"wires", wires}};
            if (n.tool) {
                node["tool"] = n.tool->Reg()->Name();
                node["keeps_state"] = ToolKeepsState(n.tool->Reg()->Name());
            }
            nodes.push_back(node);
        }
        return {{"origin", origin},
                {"range", {flow->Start(), flow->End()}},
                {"frame", flow->Document().currentTime},
                {"nodes", nodes},
                {"undo", UndoNames()}};
    }

    json UndoNames() {
        json names = json::array();
        for (const auto& s : flow->Document().UndoSteps())
            names.push_back(s.name);
        return names;
    }

    json NodeState(const std::string& name, double frame) {
        ToolOperator* op = ToolOf(name);
        json values = json::object();
        for (Input* in : op->Inputs()) {
            if (in->GetDataType() == Input::DataType::Image) continue;
            double v[2];
            in->ValueAt(frame, v);
            json keys = json::array();
            for (const Key& k : in->Keys())
                keys.push_back(k.time);
            values[in->ID().str()] = {
                {"value",
                 in->GetDataType() == Input::DataType::Point ? json({v[0], v[1]}) : json(v[0])},
                {"animated", in->IsAnimated()},
                {"keys", keys},
                {"hidden", in->GetAttr(kInVisible, 1) == 0},
                {"disabled", in->GetAttr(kInDisabled, 0) != 0}};
        }
        return {{"node", name},
                {"tool", op->Reg()->Name()},
                {"frame", frame},
                {"values", values},
                {"undo", UndoNames()}};
    }

    std::map<Input*, Input::State> Snapshot(ToolOperator* op) {
        std::map<Input*, Input::State> s;
        for (Input* in : op->Inputs())
            s[in] = in->Save();
        return s;
    }
    json Written(ToolOperator* op, const std::map<Input*, Input::State>& before, double frame) {
        json written = json::object();
        for (Input* in : op->Inputs()) {
            if (SameState(before.at(in), in->Save())) continue;
            double v[2];
            in->ValueAt(frame, v);
            written[in->ID().str()] =
                in->GetDataType() == Input::DataType::Point ? json({v[0], v[1]}) : json(v[0]);
        }
        return written;
    }

    // The size a node's picture has: that of its last render, or of a render made now.
    std::pair<int, int> SizeOf(const std::string& node, int frame) {
        auto it = sizes.find(node);
        if (it != sizes.end()) return it->second;
        ClearAborts();
        HostRef<Image> image(flow->RenderNode(node, frame));
        sizes[node] = {image->width, image->height};
        return sizes[node];
    }

    ControlView& ViewOf(const std::string& node, int frame, double zoom) {
        ToolOperator* op = ToolOf(node);
        auto [w, h] = SizeOf(node, frame);
        View& v = views[node];
        if (!v.view || v.width != w || v.height != h || v.zoom != zoom) {
            v.view.reset();
            v.view = std::make_unique<ControlView>(op, w, h, zoom, frame);
            v.width = w;
            v.height = h;
            v.zoom = zoom;
        }
        v.view->SetTime(frame);
        return *v.view;
    }

    // --- handlers; each runs under the document's lock unless it says otherwise ---

    json SetValues(const json& body) {
        const std::string node = TextField(body, "node");
        ToolOperator* op = ToolOf(node);
        FusionDoc& doc = flow->Document();
        if (!body.contains("values") || !body["values"].is_object() || body["values"].empty())
            throw AppError("the request needs \"values\": {input ID: value, ...}");
        const int frame = body.contains("frame") ? FrameOf("frame", body["frame"])
                                                 : static_cast<int>(doc.currentTime);
        const bool key = body.value("key", false);
        // Every value is checked before any is written: a refusal changes nothing.
        std::vector<std::pair<Input*, std::array<double, 2>>> writes;
        for (auto it = body["values"].begin(); it != body["values"].end(); ++it) {
            Input* in = InputOf(op, node, it.key());
            if (ControlKindOf(in) == "ButtonControl")
                throw AppError("node " + Quote(node) + ": input " + Quote(in->ID().str()) +
                               " is a button: press it");
            std::array<double, 2> v{0.0, 0.0};
            InputValueFromJson(in, it.value(), v.data(), "node " + Quote(node));
            if (key && !in->IsAnimatable())
                throw AppError("node " + Quote(node) + ": input " + Quote(in->ID().str()) +
                               " takes part in no animation, so it takes no keys");
            writes.push_back({in, v});
        }
        doc.currentTime = frame;
        doc.StartUndo(op->InstanceName() + ": " + writes.front().first->Name().str());
        for (auto& [in, v] : writes) {
            if (key && !in->IsAnimated()) {
                // The first key: the input becomes animated, holding its value at that frame.
                doc.RecordBefore(in);
                Key k;
                k.time = frame;
                in->ValueAt(frame, k.v);
                in->SetKeys({k});
            }
            const double when = key ? static_cast<double>(frame) : kWholeValue;
            if (in->GetDataType() == Input::DataType::Point) {
                Point p(v[0], v[1], 0.0);
                in->SetSource(&p, when, 1, 0);
            } else {
                AutoNumber n(v[0]);
                in->SetSource(&n, when, 1, 0);
            }
        }
        doc.EndUndo(true);
        return NodeState(node, frame);
    }

    json RemoveKey(const json& body) {
        const std::string node = TextField(body, "node");
        ToolOperator* op = ToolOf(node);
        Input* in = InputOf(op, node, TextField(body, "input"));
        const int frame = FrameOf("frame", body.value("frame", json()));
        std::vector<Key> keys = in->Keys();
        auto it =
            std::find_if(keys.begin(), keys.end(), [&](const Key& k) { return k.time == frame; });
        if (it == keys.end())
            throw AppError("node " + Quote(node) + ": input " + Quote(in->ID().str()) +
                           " has no key at frame " + std::to_string(frame));
        FusionDoc& doc = flow->Document();
        doc.StartUndo(op->InstanceName() + ": " + in->Name().str());
        doc.RecordBefore(in);
        double v[2];
        in->ValueAt(frame, v);
        keys.erase(it);
        if (keys.empty())
            in->SetConstant(v[0], v[1]);
        else
            in->SetKeys(keys);
        doc.RecordAfter(in);
        doc.EndUndo(true);
        return NodeState(node, frame);
    }

    json Press(const json& body) {
        const std::string node = TextField(body, "node");
        ToolOperator* op = ToolOf(node);
        Input* in = InputOf(op, node, TextField(body, "input"));
        if (ControlKindOf(in) != "ButtonControl")
            throw AppError("node " + Quote(node) + ": input " + Quote(in->ID().str()) +
                           " is not a button");
        FusionDoc& doc = flow->Document();
        const int frame = body.contains("frame") ? FrameOf("frame", body["frame"])
                                                 : static_cast<int>(doc.currentTime);
        doc.currentTime = frame;
        auto before = Snapshot(op);
        doc.StartUndo(op->InstanceName() + ": " + in->Name().str());
        AutoNumber one(1.0);
        in->SetSource(&one, kWholeValue, 0, 0);
        // The button springs back without a further notification.
        in->SetConstant(0.0);
        doc.RecordAfter(in);
        doc.EndUndo(true);
        json state = NodeState(node, frame);
        state["written"] = Written(op, before, frame);
        return state;
    }

    json Preset(const json& body) {
        const std::string node = TextField(body, "node");
        ToolOperator* op = ToolOf(node);
        const std::string inputName = body.contains("input") ? TextField(body, "input") : "Demos";
        std::vector<Input*> found = FindToolInputs(op, inputName);
        if (found.empty() || ControlKindOf(found.front()) != "ComboControl")
            throw AppError("node " + Quote(node) + " has no presets (no combo " + Quote(inputName) +
                           ")");
        Input* in = found.front();
        double v[2];
        InputValueFromJson(in, body.value("entry", json()), v, "node " + Quote(node) + ": preset");
        FusionDoc& doc = flow->Document();
        const int frame = body.contains("frame") ? FrameOf("frame", body["frame"])
                                                 : static_cast<int>(doc.currentTime);
        doc.currentTime = frame;
        auto before = Snapshot(op);
        doc.StartUndo(op->InstanceName() + ": " + in->Name().str());
        AutoNumber n(v[0]);
        in->SetSource(&n, kWholeValue, 0, 0);
        doc.EndUndo(true);
        json state = NodeState(node, frame);
        state["written"] = Written(op, before, frame);
        return state;
    }

    json Pointer(const json& body) {
        const std::string node = TextField(body, "node");
        ToolOperator* op = ToolOf(node);
        FusionDoc& doc = flow->Document();
        const int frame = body.contains("frame") ? FrameOf("frame", body["frame"])
                                                 : static_cast<int>(doc.currentTime);
        double zoom = body.value("zoom", 1.0);
        if (!(zoom >= 0.01 && zoom <= 64.0)) throw AppError("zoom must be from 0.01 to 64");
        const std::string event = TextField(body, "event");
        if (!body.contains("x") || !body["x"].is_number() || !body.contains("y") ||
            !body["y"].is_number())
            throw AppError("a pointer event needs \"x\" and \"y\" in image pixels");
        const double x = body["x"].get<double>(), y = body["y"].get<double>();
        if (!std::isfinite(x) || !std::isfinite(y) || std::fabs(x) > 1e6 || std::fabs(y) > 1e6)
            throw AppError("the pointer is far outside the picture");
        ControlView& view = ViewOf(node, frame, zoom);
        doc.currentTime = frame;
        auto before = Snapshot(op);
        json out = json::object();
        if (event == "down") {
            std::string input;
            out["hit"] = view.Press(static_cast<float>(x), static_cast<float>(y), &input);
            out["input"] = input;
        } else if (event == "move") {
            view.Move(static_cast<float>(x), static_cast<float>(y));
        } else if (event == "up") {
            view.Release(static_cast<float>(x), static_cast<float>(y));
        } else {
            throw AppError("pointer event " + Quote(event) + " is not down, move or up");
        }
        out["written"] = Written(op, before, frame);
        out["lines"] = LinesToJson(view.Draw());
        out["undo"] = UndoNames();
        return out;
    }

    json Controls(const httplib::Request& req) {
        if (!req.has_param("node")) throw AppError("the request needs \"node\"");
        const std::string node = req.get_param_value("node");
        const int frame = FrameParam(req, static_cast<int>(flow->Document().currentTime));
        const double zoom =
            req.has_param("zoom") ? NumberIn("zoom", req.get_param_value("zoom"), 0.01, 64) : 1.0;
        ControlView& view = ViewOf(node, frame, zoom);
        return {{"node", node},
                {"width", views[node].width},
                {"height", views[node].height},
                {"lines", LinesToJson(view.Draw())}};
    }

    json UndoRedo(bool undo) {
        FusionDoc& doc = flow->Document();
        const bool done = undo ? doc.Undo() : doc.Redo();
        return {{"done", done}, {"undo", UndoNames()}};
    }

    json Save(const json& body) {
        const std::string path = TextField(body, "path");
        fs::path full = Inside(path, {".json"});
        fs::path temp = full;
        temp += ".part";
        {
            std::ofstream out(temp, std::ios::binary);
            out << flow->ToJson().dump(2) << "\n";
            if (!out) throw AppError("cannot write " + Quote(path));
        }
        std::error_code ec;
        fs::rename(temp, full, ec);
        if (ec) throw AppError("cannot write " + Quote(path) + ": " + ec.message());
        return {{"saved", path}};
    }

    json Open(const json& body) {
        const std::string path = TextField(body, "path");
        Inside(path, {".json"});
        auto next = Flow::Load((root / path).string());
        const std::string was = origin;
        origin = path;
        try {
            Adopt(std::move(next));
        } catch (...) {
            origin = was;
            throw;
        }
        return FlowJson();
    }

    json SetLoaderPath(const json& body) {
        const std::string node = TextField(body, "node");
        const std::string path = TextField(body, "path");
        if (NodeOf(node).kind != "Loader")
            throw AppError("the node " + Quote(node) + " is not a Loader");
        fs::path full = Inside(path, {".png", ".tif", ".tiff", ".exr", ".jpg", ".jpeg"});
        if (!HasFrameRun(path) && !fs::exists(full))
            throw AppError("no file " + Quote(path) + " in the folder the viewer serves");
        json j = flow->ToJson();
        for (json& n : j["nodes"])
            if (n.value("name", "") == node) n["path"] = path;
        Adopt(Flow::FromJson(j, origin));
        return FlowJson();
    }

    json Upload(const httplib::Request& req) {
        const std::string name = req.has_param("name") ? req.get_param_value("name") : "";
        if (name.empty() || name.size() > 100 || name.front() == '.' ||
            name.find_first_not_of(
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-") !=
                std::string::npos)
            throw AppError("an upload's name is letters, digits, '.', '_' and '-' only");
        const std::string path = "uploads/" + name;
        std::error_code ec;
        fs::create_directories(root / "uploads", ec);
        fs::path full = Inside(path, {".png", ".tif", ".tiff", ".exr", ".jpg", ".jpeg"});
        std::ofstream out(full, std::ios::binary);
        out.write(req.body.data(), static_cast<std::streamsize>(req.body.size()));
        if (!out) throw AppError("cannot write " + Quote(path));
        return {{"path", path}, {"bytes", req.body.size()}};
    }

    // Runs without the caller holding the lock: the job takes it for the whole render.
    json StartFiles(const json& body) {
        if (jobRunning.exchange(true)) throw Refused{409, "a render to files is already running"};
        if (job.joinable()) job.join();
        int first, last;
        bool fromStart;
        try {
            std::lock_guard<std::mutex> lock(docMutex);
            first = body.contains("first") ? FrameOf("first", body["first"])
                                           : static_cast<int>(flow->Start());
            last = body.contains("last") ? FrameOf("last", body["last"])
                                         : static_cast<int>(flow->End());
            if (last < first) throw AppError("the frames end before they start");
            fromStart = body.value("from_start", false);
        } catch (...) {
            jobRunning = false;
            throw;
        }
        jobDone = 0;
        jobTotal = last - first + 1;
        {
            std::lock_guard<std::mutex> lock(jobMutex);
            jobError.clear();
            jobWritten.clear();
        }
        job = std::thread([this, first, last, fromStart] {
            std::lock_guard<std::mutex> lock(docMutex);
            ClearAborts();
            try {
                if (fromStart) {
                    Rebuild();
                    if (flow->Start() < first)
                        flow->Advance(static_cast<int>(flow->Start()), first - 1);
                }
                const size_t before = flow->Written().size();
                flow->Render(first, last, [this](int done, int) { jobDone = done; });
                std::lock_guard<std::mutex> jl(jobMutex);
                jobWritten.assign(flow->Written().begin() + static_cast<long>(before),
                                  flow->Written().end());
            } catch (const std::exception& e) {
                std::lock_guard<std::mutex> jl(jobMutex);
                jobError = e.what();
            }
            jobRunning = false;
        });
        return {{"started", true}, {"total", last - first + 1}};
    }

    json JobState() {
        std::lock_guard<std::mutex> lock(jobMutex);
        return {{"running", jobRunning.load()},
                {"done", jobDone.load()},
                {"total", jobTotal.load()},
                {"error", jobError},
                {"written", jobWritten}};
    }

    // The picture of a node. A newer render request aborts this one; one that arrives while
    // this one waits for the document makes it give way.
    void Render(const httplib::Request& req, httplib::Response& res) {
        if (jobRunning) throw Refused{409, "a render to files is running"};
        const uint64_t ticket = ++renderTicket;
        AbortRenders();
        std::lock_guard<std::mutex> lock(docMutex);
        if (ticket != renderTicket.load()) throw Refused{409, "superseded by a newer render"};
        if (!req.has_param("node")) throw AppError("the request needs \"node\"");
        const std::string node = req.get_param_value("node");
        const int frame = FrameParam(req, static_cast<int>(flow->Document().currentTime));
        const bool sixteen = req.has_param("bits") && req.get_param_value("bits") == "16";
        if (req.has_param("bits") && !sixteen && req.get_param_value("bits") != "8")
            throw AppError("bits is 8 or 16");
        const bool fromStart = req.has_param("from_start") &&
                               req.get_param_value("from_start") != "0" &&
                               req.get_param_value("from_start") != "false";
        NodeOf(node);
        if (fromStart && (frame < flow->Start() || frame > flow->End()))
            throw AppError("from start renders the frames of the range, " +
                           std::to_string(static_cast<int>(flow->Start())) + " to " +
                           std::to_string(static_cast<int>(flow->End())) + ", not frame " +
                           std::to_string(frame));
        ClearAborts();
        HostRef<Image> image;
        try {
            if (fromStart) {
                Rebuild();
                for (int f = static_cast<int>(flow->Start()); f < frame; ++f) {
                    HostRef<Image> skipped(flow->RenderNode(node, f));
                    if (ticket != renderTicket.load())
                        throw Refused{409, "superseded by a newer render"};
                }
            }
            image.reset(flow->RenderNode(node, frame));
        } catch (const AppError&) {
            if (ticket != renderTicket.load()) throw Refused{409, "superseded by a newer render"};
            throw;
        }
        flow->Document().currentTime = frame;
        sizes[node] = {image->width, image->height};
        res.set_content(EncodePng(*image.get(), sixteen), "image/png");
        res.set_header("Cache-Control", "no-store");
        res.set_header("X-Width", std::to_string(image->width));
        res.set_header("X-Height", std::to_string(image->height));
    }

    // Wraps a handler: JSON in and out, refusals as clear messages, the document locked.
    using JsonHandler = std::function<json(const httplib::Request&, const json&)>;
    httplib::Server::Handler Api(JsonHandler h, bool lock = true) {
        return [this, h, lock](const httplib::Request& req, httplib::Response& res) {
            Answer(res, [&] {
                json body = req.method == "POST" ? ParseBody(req) : json::object();
                json out;
                if (lock) {
                    std::lock_guard<std::mutex> l(docMutex);
                    if (jobRunning && req.method == "POST")
                        throw Refused{409, "a render to files is running"};
                    out = h(req, body);
                } else {
                    out = h(req, body);
                }
                res.set_content(out.dump(), "application/json");
            });
        };
    }

    template <class F>
    static void Answer(httplib::Response& res, F&& f) {
        auto fail = [&](int status, const std::string& message) {
            res.status = status;
            res.set_content(json({{"error", message}}).dump(), "application/json");
        };
        try {
            f();
        } catch (const Refused& r) {
            fail(r.status, r.message);
        } catch (const AppError& e) {
            fail(400, e.what());
        } catch (const Interrupted& e) {
            fail(409, e.what());
        } catch (const json::exception& e) {
            fail(400, std::string("a value of the request has the wrong type: ") + e.what());
        } catch (const std::exception& e) {
            fail(500, e.what());
        }
    }

    void Routes() {
        http.set_payload_max_length(options.maxBody);
        http.set_read_timeout(10, 0);
        http.Get("/api/tools", Api([](auto&, auto&) {
                     json tools = json::array();
                     if (ClassRegistry)
                         for (Registry* r : ClassRegistry->Items())
                             tools.push_back(DescribeTool(r->Name()));
                     return tools;
                 }));
        http.Get("/api/flow", Api([this](auto&, auto&) { return FlowJson(); }));
        http.Get("/api/node", Api([this](const httplib::Request& req, auto&) {
                     if (!req.has_param("node")) throw AppError("the request needs \"node\"");
                     return NodeState(
                         req.get_param_value("node"),
                         FrameParam(req, static_cast<int>(flow->Document().currentTime)));
                 }));
        http.Post("/api/set", Api([this](auto&, const json& b) { return SetValues(b); }));
        http.Post("/api/remove-key", Api([this](auto&, const json& b) { return RemoveKey(b); }));
        http.Post("/api/press", Api([this](auto&, const json& b) { return Press(b); }));
        http.Post("/api/preset", Api([this](auto&, const json& b) { return Preset(b); }));
        http.Post("/api/pointer", Api([this](auto&, const json& b) { return Pointer(b); }));
        http.Get("/api/controls",
                 Api([this](const httplib::Request& req, auto&) { return Controls(req); }));
        http.Post("/api/undo", Api([this](auto&, auto&) { return UndoRedo(true); }));
        http.Post("/api/redo", Api([this](auto&, auto&) { return UndoRedo(false); }));
        http.Post("/api/save", Api([this](auto&, const json& b) { return Save(b); }));
        http.Post("/api/open", Api([this](auto&, const json& b) { return Open(b); }));
        http.Post("/api/loader", Api([this](auto&, const json& b) { return SetLoaderPath(b); }));
        http.Post("/api/upload", [this](const httplib::Request& req, httplib::Response& res) {
            Answer(res, [&] {
                std::lock_guard<std::mutex> l(docMutex);
                res.set_content(Upload(req).dump(), "application/json");
            });
        });
        http.Post("/api/render-files",
                  Api([this](auto&, const json& b) { return StartFiles(b); }, false));
        http.Get("/api/job", Api([this](auto&, auto&) { return JobState(); }, false));
        http.Get("/api/render", [this](const httplib::Request& req, httplib::Response& res) {
            Answer(res, [&] { Render(req, res); });
        });
        http.Get(R"(/api/.*)", [](const httplib::Request& req, httplib::Response& res) {
            res.status = 404;
            res.set_content(json({{"error", "no such call " + Quote(req.path)}}).dump(),
                            "application/json");
        });
        if (!options.webDir.empty() && !http.set_mount_point("/", options.webDir))
            throw AppError("the page's folder " + Quote(options.webDir) + " cannot be read");
    }
};

ViewerServer::ViewerServer(ServeOptions options) : impl_(new Impl(std::move(options))) {
    impl_->Routes();
}

ViewerServer::~ViewerServer() {
    Stop();
}

int ViewerServer::Bind() {
    Impl& s = *impl_;
    if (s.options.port == 0)
        s.port = s.http.bind_to_any_port(s.options.bind);
    else
        s.port = s.http.bind_to_port(s.options.bind, s.options.port) ? s.options.port : -1;
    if (s.port <= 0)
        throw AppError("cannot listen on " + s.options.bind + ":" + std::to_string(s.options.port) +
                       " (in use, or not an address here)");
    return s.port;
}

void ViewerServer::Run() {
    impl_->http.listen_after_bind();
}

void ViewerServer::Stop() {
    impl_->http.stop();
}

std::string ViewerServer::Url() const {
    const std::string& host = impl_->options.bind;
    return "http://" + (host == "0.0.0.0" ? std::string("127.0.0.1") : host) + ":" +
           std::to_string(impl_->port) + "/";
}
