#include "app/Flow.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "app/AppError.h"
#include "app/Controls.h"
#include "app/ImageFiles.h"
#include "app/Limits.h"
#include "frame/ToolOperator.h"
#include "frame/WorkImage.h"
#include "host/App.h"
#include "host/Registration.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const std::vector<std::string> kHostNodeTypes = {"Loader", "Background", "Saver"};

std::string Lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string Quote(const std::string& s) {
    return "'" + s + "'";
}

std::string NumText(double v) {
    std::ostringstream o;
    o << v;
    return o.str();
}

std::string ControlKind(const Input* in) {
    return in->Attrs().GetText(kInControlKind);
}

// Every name a tool may be called by in a flow: registered and plain names.
std::vector<std::string> ToolNames() {
    std::vector<std::string> names;
    for (const auto& row : ToolClassTable()) {
        names.push_back(row.name);
        names.push_back(std::string(row.name).substr(2));
    }
    if (ClassRegistry)
        for (Registry* r : ClassRegistry->Items()) {
            names.push_back(r->Name());
            names.push_back(r->PlainName());
        }
    return names;
}

std::string LineColumn(const std::string& text, size_t byte) {
    size_t line = 1, column = 1;
    for (size_t i = 0; i < byte && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return std::to_string(line) + ":" + std::to_string(column);
}

uint16_t Sample16(const json& v, const std::string& where) {
    if (!v.is_number())
        throw AppError(where + ": a colour sample must be a number from 0 to 65535");
    double d = v.get<double>();
    if (!(d >= 0.0 && d <= 65535.0) || d != std::floor(d))
        throw AppError(where + ": colour sample " + v.dump() +
                       " is not a whole number from 0 to 65535");
    return static_cast<uint16_t>(d);
}

void ReadColour(const json& v, uint16_t out[4], const std::string& where) {
    if (!v.is_array() || (v.size() != 3 && v.size() != 4))
        throw AppError(where +
                       ": a colour is [red, green, blue] or [red, green, blue, alpha] in "
                       "16-bit samples");
    for (size_t c = 0; c < v.size(); ++c)
        out[c] = Sample16(v[c], where);
    if (v.size() == 3) out[3] = 65535;
}

int FrameNumber(const json& v, const std::string& where) {
    // Compared as a real first: a JSON number may be any size, and only one that fits is converted.
    const double d = v.is_number() ? v.get<double>() : 0.5;
    if (!(d == std::floor(d) && std::fabs(d) <= kFrameLimit))
        throw AppError(where + ": frame numbers are whole numbers from " +
                       std::to_string(-kFrameLimit) + " to " + std::to_string(kFrameLimit) +
                       ", not " + v.dump());
    return static_cast<int>(d);
}

// A whole number from lo to hi, or -1 when the value is anything else.
int WholeIn(const json& v, int lo, int hi) {
    if (!v.is_number()) return -1;
    const double d = v.get<double>();
    if (!(d == std::floor(d) && d >= lo && d <= hi) || !v.is_number_integer()) return -1;
    return static_cast<int>(d);
}

// Width and height from "size": whole numbers from 1 to 32768, their product within the limit.
void ReadSize(const json& s, int* width, int* height, const std::string& where) {
    int w = -1, h = -1;
    if (s.is_array() && s.size() == 2) {
        w = WholeIn(s[0], 1, 32768);
        h = WholeIn(s[1], 1, 32768);
    }
    if (w < 1 || h < 1)
        throw AppError(where + ": \"size\" is [width, height], whole numbers from 1 to 32768");
    CheckPixelCount(w, h, where + ": \"size\"");
    *width = w;
    *height = h;
}

// A path pattern made ready for comparison: its canonical form, cut around the first run of '#'.
struct PathPattern {
    bool run = false;
    std::string head, tail;
    size_t width = 0;
};

std::string CanonicalKey(const std::string& p) {
    std::error_code ec;
    fs::path canonical = fs::weakly_canonical(fs::absolute(p), ec);
    return ec ? p : canonical.string();
}

PathPattern MakePathPattern(const std::string& path) {
    PathPattern p;
    const std::string key = CanonicalKey(path);
    const size_t at = key.find('#');
    if (at == std::string::npos || !HasFrameRun(path)) {
        p.head = key;
        return p;
    }
    size_t end = at;
    while (end < key.size() && key[end] == '#')
        ++end;
    p.run = true;
    p.head = key.substr(0, at);
    p.tail = key.substr(end);
    p.width = end - at;
    return p;
}

// Whether the canonical `path` is what `pattern` gives for some frame from lo to hi. The cost
// does not depend on the length of the range.
bool Produces(const PathPattern& pattern, const std::string& path, int64_t lo, int64_t hi) {
    if (!pattern.run) return path == pattern.head;
    const size_t fixed = pattern.head.size() + pattern.tail.size();
    if (path.size() <= fixed || path.size() - fixed > 12) return false;
    if (path.compare(0, pattern.head.size(), pattern.head) != 0) return false;
    if (path.compare(path.size() - pattern.tail.size(), pattern.tail.size(), pattern.tail) != 0)
        return false;
    const std::string digits = path.substr(pattern.head.size(), path.size() - fixed);
    size_t i = digits[0] == '-' ? 1 : 0;
    if (i == digits.size()) return false;
    int64_t n = 0;
    for (; i < digits.size(); ++i) {
        if (digits[i] < '0' || digits[i] > '9') return false;
        n = n * 10 + (digits[i] - '0');
    }
    if (digits[0] == '-') n = -n;
    if (n < lo || n > hi || n < -kFrameLimit * 2LL || n > kFrameLimit * 2LL) return false;
    return FramePath(std::string(pattern.width, '#'), static_cast<int>(n)) == digits;
}

}  // namespace

bool HasFrameRun(const std::string& pattern) {
    return pattern.find('#') != std::string::npos;
}

std::string FramePath(const std::string& pattern, int frame) {
    size_t at = pattern.find('#');
    if (at == std::string::npos) return pattern;
    size_t end = at;
    while (end < pattern.size() && pattern[end] == '#')
        ++end;
    const size_t width = end - at;
    std::string digits = std::to_string(frame < 0 ? -static_cast<long>(frame) : frame);
    if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
    if (frame < 0) digits.insert(0, "-");
    return pattern.substr(0, at) + digits + pattern.substr(end);
}

bool PatternProduces(const std::string& pattern, const std::string& path, int64_t lo, int64_t hi) {
    return Produces(MakePathPattern(pattern), path, lo, hi);
}

Flow::~Flow() = default;

std::unique_ptr<Flow> Flow::Load(const std::string& path) {
    // Only a regular file: a pipe or a device could feed the reader for ever.
    CheckRegularFile(path, "flow");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw AppError("cannot read flow '" + path + "': permission denied");
    // Read in pieces up to the limit, whatever size the file claims.
    std::string text;
    char piece[1 << 16];
    while (file.read(piece, sizeof piece) || file.gcount() > 0) {
        text.append(piece, static_cast<size_t>(file.gcount()));
        if (text.size() > kFlowByteLimit)
            throw AppError("cannot read flow '" + path + "': it is larger than " +
                           std::to_string(kFlowByteLimit >> 20) + " MiB");
    }
    json flow;
    try {
        flow = json::parse(text);
    } catch (const json::parse_error& e) {
        std::string what = e.what();
        // Keep the library's explanation, without its own position prefix.
        size_t colon = what.find(": ", what.find("parse error"));
        std::string why = colon != std::string::npos ? what.substr(colon + 2) : what;
        throw AppError(path + ":" + LineColumn(text, e.byte > 0 ? e.byte - 1 : 0) +
                       ": malformed flow: " + why);
    }
    return FromJson(flow, path);
}

std::unique_ptr<Flow> Flow::FromJson(const json& flow, const std::string& origin) {
    std::unique_ptr<Flow> f(new Flow(origin));
    f->Build(flow);
    return f;
}

std::string Flow::Where(const Node& node) const {
    return origin_ + ": node " + Quote(node.name);
}

ToolOperator* Flow::ToolOf(const std::string& name) const {
    for (const auto& n : nodes_)
        if (n->name == name && n->tool) return n->tool;
    return nullptr;
}

void Flow::Build(const json& flow) {
    source_ = flow;
    if (!flow.is_object()) throw AppError(origin_ + ": a flow is a JSON object with \"nodes\"");
    static const std::set<std::string> known = {"size", "range", "nodes", "comment"};
    for (auto it = flow.begin(); it != flow.end(); ++it)
        if (!known.count(it.key()))
            throw AppError(origin_ + ": unknown key " + Quote(it.key()) +
                           " (a flow has \"size\", \"range\" and \"nodes\")");

    int width = 720, height = 486;
    if (flow.contains("size")) ReadSize(flow["size"], &width, &height, origin_);
    doc_.globalStart = doc_.globalEnd = 1;
    if (flow.contains("range")) {
        const json& r = flow["range"];
        if (!r.is_array() || r.size() != 2)
            throw AppError(origin_ + ": \"range\" is [first, last] frame");
        doc_.globalStart = FrameNumber(r[0], origin_ + ": \"range\"");
        doc_.globalEnd = FrameNumber(r[1], origin_ + ": \"range\"");
        if (doc_.globalEnd < doc_.globalStart)
            throw AppError(origin_ + ": \"range\" ends before it starts");
    }
    doc_.currentTime = doc_.globalStart;

    if (!flow.contains("nodes") || !flow["nodes"].is_array() || flow["nodes"].empty())
        throw AppError(origin_ + ": \"nodes\" must be a list of at least one node");
    // Names first, so that wires may point forward.
    for (const json& body : flow["nodes"]) {
        auto node = std::make_unique<Node>();
        if (!body.is_object() || !body.contains("name") || !body["name"].is_string() ||
            body["name"].get<std::string>().empty())
            throw AppError(origin_ + ": node " + std::to_string(nodes_.size() + 1) +
                           " needs a \"name\"");
        node->name = body["name"].get<std::string>();
        for (const auto& other : nodes_)
            if (other->name == node->name)
                throw AppError(origin_ + ": two nodes are named " + Quote(node->name));
        if (!body.contains("type") || !body["type"].is_string())
            throw AppError(Where(*node) +
                           ": needs a \"type\" (a tool, Loader, Background or Saver)");
        node->type = body["type"].get<std::string>();
        node->pattern.width = width;
        node->pattern.height = height;
        nodes_.push_back(std::move(node));
    }
    size_t i = 0;
    for (const json& body : flow["nodes"])
        BuildNode(*nodes_[i++], body);
    for (size_t k = 0; k < nodes_.size(); ++k)
        if (nodes_[k]->kind == Node::Kind::Tool) Wire(*nodes_[k], flow["nodes"][k]);

    for (const auto& n : nodes_)
        if (n->kind == Node::Kind::Saver && n->overlay &&
            nodes_[n->input.node]->kind != Node::Kind::Tool)
            throw AppError(Where(*n) + ": \"overlay\" draws a tool's controls, but its input " +
                           Quote(nodes_[n->input.node]->name) + " is not a tool");

    // Wires must not form a loop.
    std::vector<int> state(nodes_.size(), 0);
    std::function<void(size_t)> visit = [&](size_t k) {
        if (state[k] == 2) return;
        if (state[k] == 1) throw AppError(Where(*nodes_[k]) + ": the wires form a loop");
        state[k] = 1;
        const Node& n = *nodes_[k];
        if (n.kind == Node::Kind::Saver) visit(n.input.node);
        for (const auto& w : n.wires)
            visit(w.second.node);
        state[k] = 2;
    };
    for (size_t k = 0; k < nodes_.size(); ++k)
        visit(k);
}

void Flow::BuildNode(Node& node, const json& body) {
    auto allowOnly = [&](const std::set<std::string>& keys) {
        for (auto it = body.begin(); it != body.end(); ++it)
            if (!keys.count(it.key()))
                throw AppError(Where(node) + ": unknown key " + Quote(it.key()) + " for a " +
                               node.type + " node");
    };
    auto text = [&](const char* key, bool required) -> std::string {
        if (!body.contains(key)) {
            if (required) throw AppError(Where(node) + ": needs \"" + key + "\"");
            return "";
        }
        if (!body[key].is_string() || body[key].get<std::string>().empty())
            throw AppError(Where(node) + ": \"" + key + "\" must be non-empty text");
        return body[key].get<std::string>();
    };

    if (node.type == "Loader") {
        node.kind = Node::Kind::Loader;
        allowOnly({"name", "type", "path", "offset", "comment"});
        node.path = text("path", true);
        if (body.contains("offset")) node.offset = FrameNumber(body["offset"], Where(node));
    } else if (node.type == "Background") {
        node.kind = Node::Kind::Background;
        allowOnly({"name", "type", "pattern", "colour", "colour2", "cell", "size", "comment"});
        PatternSpec& p = node.pattern;
        if (body.contains("pattern")) {
            p.kind = text("pattern", false);
            bool ok = false;
            for (const auto& k : PatternKinds())
                ok = ok || k == p.kind;
            if (!ok) {
                std::string list;
                for (const auto& k : PatternKinds())
                    list += (list.empty() ? "" : ", ") + k;
                throw AppError(Where(node) + ": unknown pattern " + Quote(p.kind) + " (one of " +
                               list + ")");
            }
        }
        if (body.contains("colour"))
            ReadColour(body["colour"], p.colour, Where(node) + ": \"colour\"");
        if (body.contains("colour2"))
            ReadColour(body["colour2"], p.colour2, Where(node) + ": \"colour2\"");
        if (body.contains("cell")) {
            p.cell = WholeIn(body["cell"], 1, 32768);
            if (p.cell < 1)
                throw AppError(Where(node) +
                               ": \"cell\" is a whole number of pixels from 1 to 32768");
        }
        if (body.contains("size")) ReadSize(body["size"], &p.width, &p.height, Where(node));
    } else if (node.type == "Saver") {
        node.kind = Node::Kind::Saver;
        allowOnly({"name", "type", "path", "input", "overlay", "overlay_zoom", "comment"});
        node.path = text("path", true);
        CheckOutputFormat(node.path);
        if (!body.contains("input")) throw AppError(Where(node) + ": needs \"input\"");
        node.input = Resolve(node, "\"input\"", body["input"]);
        if (body.contains("overlay")) {
            if (!body["overlay"].is_boolean())
                throw AppError(Where(node) + ": \"overlay\" is true or false");
            node.overlay = body["overlay"].get<bool>();
        }
        if (body.contains("overlay_zoom")) {
            const json& z = body["overlay_zoom"];
            if (!z.is_number() || !(z.get<double>() > 0.0) || z.get<double>() > 64.0)
                throw AppError(Where(node) + ": \"overlay_zoom\" is a number above 0, at most 64");
            node.overlayZoom = z.get<double>();
        }
    } else {
        node.kind = Node::Kind::Tool;
        allowOnly({"name", "type", "inputs", "preset", "preset_input", "presets", "press",
                   "connect", "source", "comment"});
        BuildTool(node, body);
    }
}

Flow::Ref Flow::Resolve(const Node& from, const std::string& what, const json& ref) const {
    if (!ref.is_string()) throw AppError(Where(from) + ": " + what + " names a node (text)");
    std::string name = ref.get<std::string>();
    // "node.Output" names the output of a tool; every node has just the one.
    size_t dot = name.rfind('.');
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t k = 0; k < nodes_.size(); ++k) {
            const Node& n = *nodes_[k];
            if (n.name != name) continue;
            if (n.kind == Node::Kind::Saver)
                throw AppError(Where(from) + ": " + what + " names the Saver " + Quote(name) +
                               ", which has no output");
            if (&n == &from) throw AppError(Where(from) + ": " + what + " names the node itself");
            return Ref{k};
        }
        if (pass == 0 && dot != std::string::npos && name.substr(dot + 1) == "Output")
            name = name.substr(0, dot);
        else
            break;
    }
    std::vector<std::string> names;
    for (const auto& n : nodes_)
        names.push_back(n->name);
    std::string near = Nearest(ref.get<std::string>(), names);
    throw AppError(Where(from) + ": " + what + " names no node " + Quote(ref.get<std::string>()) +
                   (near.empty() ? "" : " (did you mean " + Quote(near) + "?)"));
}

void Flow::BuildTool(Node& node, const json& body) {
    Registry* reg = ClassRegistry ? ClassRegistry->Find(node.type) : nullptr;
    if (!reg) {
        for (const auto& row : ToolClassTable())
            if (Lower(node.type) == Lower(row.name) || Lower(node.type) == Lower(row.name + 2))
                throw AppError(Where(node) + ": the tool " + Quote(node.type) +
                               " is not available in this build yet");
        std::vector<std::string> names = ToolNames();
        names.insert(names.end(), kHostNodeTypes.begin(), kHostNodeTypes.end());
        std::string near = Nearest(node.type, names);
        throw AppError(Where(node) + ": unknown type " + Quote(node.type) +
                       (near.empty() ? "" : " (did you mean " + Quote(near) + "?)") +
                       "; 'crate07 tools' lists the tools");
    }
    Operator* op = doc_.AddTool(reg->Name());
    op->SetInstanceName(node.name);
    node.tool = dynamic_cast<ToolOperator*>(op);
    if (!node.tool) throw AppError(Where(node) + ": " + Quote(node.type) + " is not a tool");

    // A preset first, as a user would pick it; then the values the flow gives, which are loaded
    // as a composition's saved values are: without notifications.
    if (body.contains("preset")) {
        if (!body["preset"].is_string())
            throw AppError(Where(node) + ": \"preset\" is the text of a combo entry");
        std::string inputName = "Demos";
        if (body.contains("preset_input")) {
            if (!body["preset_input"].is_string())
                throw AppError(Where(node) + ": \"preset_input\" names a combo input");
            inputName = body["preset_input"].get<std::string>();
        }
        ApplyPreset(node, body["preset"].get<std::string>(), inputName);
    }
    ReadActions(node, body);
    if (body.contains("inputs")) {
        const json& inputs = body["inputs"];
        if (!inputs.is_object())
            throw AppError(Where(node) + ": \"inputs\" maps input IDs to values");
        doc_.busy = 1;
        try {
            for (auto it = inputs.begin(); it != inputs.end(); ++it)
                SetInputValue(node, it.key(), it.value());
        } catch (...) {
            doc_.busy = 0;
            throw;
        }
        doc_.busy = 0;
    }
}

std::vector<Input*> FindToolInputs(Operator* op, const std::string& key) {
    for (Input* in : op->Inputs())
        if (in->ID() == key.c_str() && in->GetDataType() != Input::DataType::Image) return {in};
    std::vector<Input*> found;
    for (Input* in : op->Inputs())
        if (in->Name() == key.c_str() && in->GetDataType() != Input::DataType::Image)
            found.push_back(in);
    if (found.empty())
        for (Input* in : op->Inputs())
            if (Lower(in->ID().str()) == Lower(key) && in->GetDataType() != Input::DataType::Image)
                found.push_back(in);
    return found;
}

namespace {

std::vector<Input*> FindInputs(Operator* op, const std::string& key) {
    return FindToolInputs(op, key);
}

std::vector<std::string> InputKeys(Operator* op) {
    std::vector<std::string> keys;
    for (Input* in : op->Inputs()) {
        keys.push_back(in->ID().str());
        keys.push_back(in->Name().str());
    }
    return keys;
}

std::string Describe(const Input* in) {
    return Quote(in->ID().str()) + " (" + in->Name().str() + ")";
}

}  // namespace

void InputValueFromJson(const Input* in, const json& v, double out[2], const std::string& where) {
    const std::string kind = ControlKind(in);
    const std::string what = where + ": input " + Describe(in);
    if (in->GetDataType() == Input::DataType::Point) {
        if (!v.is_array() || v.size() != 2 || !v[0].is_number() || !v[1].is_number())
            throw AppError(what + " is a point: give [x, y]");
        out[0] = v[0].get<double>();
        out[1] = v[1].get<double>();
        if (!std::isfinite(out[0]) || !std::isfinite(out[1]))
            throw AppError(what + ": the point must be finite");
        return;
    }
    if (kind == "ButtonControl") throw AppError(what + " is a button and holds no value");
    double d;
    if (kind == "ComboControl") {
        std::vector<std::string> entries = in->Attrs().GetAllText(kInComboEntry);
        if (v.is_string()) {
            const std::string want = v.get<std::string>();
            int found = -1;
            for (size_t k = 0; k < entries.size() && found < 0; ++k)
                if (entries[k] == want) found = static_cast<int>(k);
            for (size_t k = 0; k < entries.size() && found < 0; ++k)
                if (Lower(entries[k]) == Lower(want)) found = static_cast<int>(k);
            if (found < 0) {
                std::string list;
                for (const auto& e : entries)
                    list += (list.empty() ? "\"" : ", \"") + e + "\"";
                throw AppError(what + " has no entry \"" + want + "\" (entries: " + list + ")");
            }
            d = found;
        } else if (v.is_number()) {
            d = v.get<double>();
            if (d != std::floor(d) || d < 0 || d >= static_cast<double>(entries.size()))
                throw AppError(what + ": entry " + v.dump() + " is not an index from 0 to " +
                               std::to_string(entries.size() - 1));
        } else {
            throw AppError(what + " is a combo: give an entry's text or its index");
        }
        out[0] = d;
        return;
    }
    if (kind == "CheckboxControl") {
        if (v.is_boolean())
            d = v.get<bool>() ? 1.0 : 0.0;
        else if (v.is_number() && (v.get<double>() == 0.0 || v.get<double>() == 1.0))
            d = v.get<double>();
        else
            throw AppError(what + " is a checkbox: give 0 or 1");
        out[0] = d;
        return;
    }
    if (!v.is_number()) throw AppError(what + " takes a number, not " + v.dump());
    d = v.get<double>();
    if (!std::isfinite(d)) throw AppError(what + ": the value must be finite");
    if (in->GetAttr(kInWholeNumber, 0) && d != std::floor(d))
        throw AppError(what + " takes a whole number, not " + NumText(d));
    if (in->Attrs().Has(kInAllowedMin) && d < in->GetAttrD(kInAllowedMin))
        throw AppError(what + " = " + NumText(d) + " is below the allowed range " +
                       NumText(in->GetAttrD(kInAllowedMin)) + " to " +
                       NumText(in->GetAttrD(kInAllowedMax, INFINITY)));
    if (in->Attrs().Has(kInAllowedMax) && d > in->GetAttrD(kInAllowedMax))
        throw AppError(what + " = " + NumText(d) + " is above the allowed range " +
                       NumText(in->GetAttrD(kInAllowedMin, -INFINITY)) + " to " +
                       NumText(in->GetAttrD(kInAllowedMax)));
    out[0] = d;
}

namespace {

void ToValue(const Input* in, const json& v, double out[2], const std::string& where) {
    InputValueFromJson(in, v, out, where);
}

}  // namespace

void Flow::SetInputValue(Node& node, const std::string& key, const json& value) {
    Operator* op = node.tool;
    std::vector<Input*> found = FindInputs(op, key);
    if (found.empty()) {
        std::string near = Nearest(key, InputKeys(op));
        throw AppError(Where(node) + ": " + node.type + " has no input " + Quote(key) +
                       (near.empty() ? "" : " (did you mean " + Quote(near) + "?)") +
                       "; 'crate07 describe " + node.type + "' lists them");
    }
    // A colour by its label: [red, green, blue] or with alpha, each 0..1.
    std::vector<Input*> colour;
    for (Input* in : found)
        if (ControlKind(in) == "ColorControl") colour.push_back(in);
    if (value.is_array() && colour.size() >= 3 && (value.size() == 3 || value.size() == 4)) {
        for (size_t c = 0; c < value.size() && c < colour.size(); ++c)
            SetInputValue(node, colour[c]->ID().str(), value[c]);
        return;
    }
    if (found.size() > 1) {
        std::vector<Input*> plain;
        for (Input* in : found)
            if (ControlKind(in) != "ColorControl") plain.push_back(in);
        if (plain.size() == 1 && !value.is_array()) {
            found = plain;
        } else {
            std::string ids;
            for (Input* in : found)
                ids += (ids.empty() ? "" : ", ") + in->ID().str();
            throw AppError(Where(node) + ": the label " + Quote(key) +
                           " names several inputs; use an ID (" + ids + ")");
        }
    }
    Input* in = found.front();
    const std::string where = Where(node);
    if (value.is_object()) {
        if (!value.contains("keys") || value.size() != 1)
            throw AppError(where + ": input " + Describe(in) +
                           ": an animated value is {\"keys\": [[frame, value], ...]}");
        if (!in->IsAnimatable())
            throw AppError(where + ": input " + Describe(in) + " takes part in no animation");
        const json& list = value["keys"];
        if (!list.is_array() || list.empty())
            throw AppError(where + ": input " + Describe(in) +
                           ": \"keys\" is a list of "
                           "[frame, value] or "
                           "[frame, value, \"smooth\"]");
        std::vector<Key> keys;
        for (const json& k : list) {
            if (!k.is_array() || k.size() < 2 || k.size() > 3 || !k[0].is_number())
                throw AppError(where + ": input " + Describe(in) +
                               ": a key is [frame, value] or "
                               "[frame, value, \"linear\" or "
                               "\"smooth\"]");
            Key key;
            key.time = k[0].get<double>();
            ToValue(in, k[1], key.v, where);
            if (k.size() == 3) {
                if (k[2] == "smooth")
                    key.interp = Interp::Smooth;
                else if (k[2] == "linear")
                    key.interp = Interp::Linear;
                else
                    throw AppError(where + ": input " + Describe(in) + ": interpolation " +
                                   k[2].dump() + " is neither \"linear\" nor \"smooth\"");
            }
            for (const Key& other : keys)
                if (other.time == key.time)
                    throw AppError(where + ": input " + Describe(in) + " has two keys at frame " +
                                   NumText(key.time));
            keys.push_back(key);
        }
        in->SetKeys(std::move(keys));
        return;
    }
    double v[2] = {0.0, 0.0};
    ToValue(in, value, v, where);
    in->SetConstant(v[0], v[1]);
}

Input* Flow::PresetInput(Node& node, const std::string& inputName, const std::string& entry,
                         double* value) {
    std::vector<Input*> found = FindInputs(node.tool, inputName);
    if (found.empty() || ControlKind(found.front()) != "ComboControl")
        throw AppError(Where(node) + ": " + node.type + " has no presets (no combo " +
                       Quote(inputName) + ")");
    double v[2];
    ToValue(found.front(), json(entry), v, Where(node) + ": preset");
    *value = v[0];
    return found.front();
}

void Flow::ReadActions(Node& node, const json& body) {
    if (body.contains("press")) {
        const json& press = body["press"];
        if (!press.is_object())
            throw AppError(Where(node) + ": \"press\" maps buttons to a frame or a list of frames");
        for (auto it = press.begin(); it != press.end(); ++it) {
            std::vector<Input*> found = FindInputs(node.tool, it.key());
            if (found.empty() || ControlKind(found.front()) != "ButtonControl") {
                std::vector<std::string> buttons;
                for (Input* in : node.tool->Inputs())
                    if (ControlKind(in) == "ButtonControl") buttons.push_back(in->ID().str());
                std::string near = Nearest(it.key(), buttons);
                throw AppError(Where(node) + ": " + node.type + " has no button " +
                               Quote(it.key()) +
                               (near.empty() ? "" : " (did you mean " + Quote(near) + "?)"));
            }
            json frames = it.value().is_array() ? it.value() : json::array({it.value()});
            for (const json& f : frames) {
                Node::Action a;
                a.frame = FrameNumber(f, Where(node) + ": \"press\" " + Quote(it.key()));
                a.input = found.front();
                node.actions.push_back(a);
            }
        }
    }
    if (body.contains("presets")) {
        const json& presets = body["presets"];
        if (!presets.is_array())
            throw AppError(Where(node) + ": \"presets\" is a list of {\"entry\": …, \"frame\": …}");
        for (const json& p : presets) {
            if (!p.is_object() || !p.contains("entry") || !p["entry"].is_string() ||
                !p.contains("frame"))
                throw AppError(Where(node) +
                               ": a timed preset is {\"entry\": text, \"frame\": "
                               "frame}");
            for (auto key = p.begin(); key != p.end(); ++key)
                if (key.key() != "entry" && key.key() != "frame" && key.key() != "input")
                    throw AppError(Where(node) + ": unknown key " + Quote(key.key()) +
                                   " in a timed preset (it has \"entry\", \"frame\" and "
                                   "\"input\")");
            if (p.contains("input") && !p["input"].is_string())
                throw AppError(Where(node) + ": a timed preset's \"input\" names a combo input");
            std::string inputName = p.value("input", std::string("Demos"));
            Node::Action a;
            a.button = false;
            a.frame = FrameNumber(p["frame"], Where(node) + ": preset");
            a.input = PresetInput(node, inputName, p["entry"].get<std::string>(), &a.value);
            node.actions.push_back(a);
        }
    }
    std::stable_sort(
        node.actions.begin(), node.actions.end(),
        [](const Node::Action& a, const Node::Action& b) { return a.frame < b.frame; });
}

void Flow::RunActions(int frame) {
    // Actions due at this frame, and any due earlier that were not yet run (the render began
    // later), in the order of their frames.
    for (auto& n : nodes_) {
        for (auto& a : n->actions) {
            if (a.done || a.frame > frame) continue;
            a.done = true;
            doc_.currentTime = frame;
            AutoNumber v(a.value);
            a.input->SetSource(&v, kWholeValue, 0, 0);
            // A button springs back without a further notification.
            if (a.button) a.input->SetConstant(0.0);
        }
    }
}

void Flow::ApplyPreset(Node& node, const std::string& entry, const std::string& inputName) {
    double value = 0.0;
    Input* in = PresetInput(node, inputName, entry, &value);
    double v[2] = {value, 0.0};
    // Chosen as a user would choose it: the value as a whole, with the notification at the
    // document's current frame, so that the tool's handler writes the preset.
    AutoNumber n(v[0]);
    in->SetSource(&n, kWholeValue, 0, 0);
}

void Flow::Wire(Node& node, const json& body) {
    std::vector<Input*> images;
    for (Input* in : node.tool->Inputs())
        if (in->GetDataType() == Input::DataType::Image) images.push_back(in);
    auto connect = [&](Input* in, const json& ref, const std::string& what) {
        for (const auto& w : node.wires)
            if (w.first == in)
                throw AppError(Where(node) + ": image input " + Quote(in->Name().str()) +
                               " is connected twice");
        node.wires.push_back({in, Resolve(node, what, ref)});
    };
    if (body.contains("source")) {
        if (images.empty()) throw AppError(Where(node) + ": the tool has no image inputs");
        // The source feeds the main image: connector 1, which need not be the first made.
        Input* main = images.front();
        for (Input* in : images)
            if (in->GetAttr(kInConnector, 0) == 1) {
                main = in;
                break;
            }
        connect(main, body["source"], "\"source\"");
    }
    if (body.contains("connect")) {
        const json& c = body["connect"];
        if (!c.is_object())
            throw AppError(Where(node) + ": \"connect\" maps image inputs to node names");
        for (auto it = c.begin(); it != c.end(); ++it) {
            Input* in = nullptr;
            for (Input* i : images)
                if (i->ID() == it.key().c_str() || i->Name() == it.key().c_str()) in = i;
            if (!in) {
                std::vector<std::string> names;
                for (Input* i : images)
                    names.push_back(i->Name().str());
                std::string near = Nearest(it.key(), names);
                std::string list;
                for (const auto& n : names)
                    list += (list.empty() ? "'" : ", '") + n + "'";
                throw AppError(Where(node) + ": " + node.type + " has no image input " +
                               Quote(it.key()) +
                               (near.empty() ? "" : " (did you mean " + Quote(near) + "?)") +
                               (list.empty() ? "" : "; its image inputs: " + list));
            }
            connect(in, it.value(), "image input " + Quote(in->Name().str()));
        }
    }
    // The first image input is the main one; the render reads the wires in the inputs' order.
    std::stable_sort(node.wires.begin(), node.wires.end(), [&](const auto& a, const auto& b) {
        return std::find(images.begin(), images.end(), a.first) <
               std::find(images.begin(), images.end(), b.first);
    });
    for (Input* in : images) {
        bool wired = false;
        for (const auto& w : node.wires)
            wired = wired || w.first == in;
        if (!wired && in->GetAttr(kInRequired, 1) != 0)
            throw AppError(Where(node) + ": the required image input " + Quote(in->Name().str()) +
                           " is not connected");
    }
}

void Flow::CheckOutputs(int first, int last) {
    checkFirst_ = first;
    checkLast_ = last;
    // Every path of the first frames is compared before anything renders; the frames beyond them
    // are checked one by one as they are written (CheckFrameOutputs), so that the check of a long
    // range costs no more than its render.
    last = static_cast<int>(std::min<int64_t>(last, int64_t{first} + kFramesCheckedFirst - 1));
    checkedUntil_ = last;
    std::map<std::string, std::string> inputs;  // path -> loader node
    auto key = [](const std::string& p) { return CanonicalKey(p); };
    for (const auto& n : nodes_) {
        if (n->kind != Node::Kind::Loader) continue;
        for (int f = first; f <= last; ++f) {
            if (GetApp()->interrupted.load())
                throw Interrupted("interrupted while checking the output paths");
            inputs[key(FramePath(n->path, f + n->offset))] = n->name;
            if (!HasFrameRun(n->path)) break;
        }
    }
    std::map<std::string, std::string> outputs;
    for (const auto& n : nodes_) {
        if (n->kind != Node::Kind::Saver) continue;
        if (!HasFrameRun(n->path) && last > first)
            throw AppError(Where(*n) + ": the path " + Quote(n->path) + " has no run of '#' for " +
                           "the frame number, but " + std::to_string(last - first + 1) +
                           " frames are rendered");
        for (int f = first; f <= last; ++f) {
            if (GetApp()->interrupted.load())
                throw Interrupted("interrupted while checking the output paths");
            std::string p = key(FramePath(n->path, f));
            auto in = inputs.find(p);
            if (in != inputs.end())
                throw AppError(Where(*n) + ": would overwrite " + Quote(FramePath(n->path, f)) +
                               ", which the Loader " + Quote(in->second) + " reads");
            auto out = outputs.find(p);
            if (out != outputs.end() && out->second != n->name)
                throw AppError(Where(*n) + ": writes " + Quote(FramePath(n->path, f)) +
                               " as the Saver " + Quote(out->second) + " does");
            outputs[p] = n->name;
        }
    }
}

void Flow::CheckFrameOutputs(int frame) const {
    if (frame <= checkedUntil_) return;
    for (const auto& n : nodes_) {
        if (n->kind != Node::Kind::Saver) continue;
        const std::string path = FramePath(n->path, frame);
        const std::string p = CanonicalKey(path);
        for (const auto& other : nodes_) {
            if (other->kind == Node::Kind::Loader &&
                Produces(MakePathPattern(other->path), p, int64_t{checkFirst_} + other->offset,
                         int64_t{checkLast_} + other->offset))
                throw AppError(Where(*n) + ": would overwrite " + Quote(path) +
                               ", which the Loader " + Quote(other->name) + " reads");
            if (other->kind == Node::Kind::Saver && other != n &&
                Produces(MakePathPattern(other->path), p, checkFirst_, checkLast_))
                throw AppError(Where(*n) + ": writes " + Quote(path) + " as the Saver " +
                               Quote(other->name) + " does");
        }
    }
}

Image* Flow::Evaluate(size_t index, double time) {
    Node& node = *nodes_[index];
    if (node.memo && node.memoTime == time) {
        node.memo->Use();
        return node.memo.get();
    }
    Image* result = nullptr;
    switch (node.kind) {
        case Node::Kind::Loader: {
            if (!HasFrameRun(node.path)) {
                if (!node.still) node.still.reset(LoadImageFile(node.path));
                node.still->Use();
                result = node.still.get();
            } else {
                int frame = static_cast<int>(std::floor(time)) + node.offset;
                try {
                    result = LoadImageFile(FramePath(node.path, frame));
                } catch (const AppError& e) {
                    throw AppError(Where(node) + " at frame " + std::to_string(frame) + ": " +
                                   e.what());
                }
            }
            break;
        }
        case Node::Kind::Background:
            if (!node.generated) node.generated.reset(MakePattern(node.pattern));
            node.generated->Use();
            result = node.generated.get();
            break;
        case Node::Kind::Saver:
            return nullptr;
        case Node::Kind::Tool: {
            Request request(node.tool, time);
            // Further images of another size are scaled to the main image's size on import.
            for (const auto& w : node.wires) {
                HostRef<Image> image(Evaluate(w.second.node, time));
                if (image) request.SetInputImage(w.first, image.get());
            }
            node.tool->Process(&request);
            Parameter* out = request.TakeOutputData(node.tool->MainOutput());
            if (!out) {
                if (GetApp()->interrupted.load())
                    throw Interrupted("interrupted while rendering node " + Quote(node.name) +
                                      " at frame " + NumText(time));
                throw AppError(Where(node) + ": the tool delivered no image at frame " +
                               NumText(time));
            }
            result = static_cast<Image*>(out);
            break;
        }
    }
    node.memo.reset(result);
    node.memoTime = time;
    result->Use();
    return result;
}

void Flow::RenderFrame(int frame, bool write) {
    if (GetApp()->interrupted.load())
        throw Interrupted("interrupted before frame " + std::to_string(frame));
    if (write) CheckFrameOutputs(frame);
    doc_.currentTime = frame;
    RunActions(frame);
    doc_.currentTime = frame;
    for (size_t k = 0; k < nodes_.size(); ++k) {
        Node& n = *nodes_[k];
        if (n.kind != Node::Kind::Saver) continue;
        HostRef<Image> image(Evaluate(n.input.node, frame));
        if (!write) continue;
        std::string path = FramePath(n.path, frame);
        if (n.overlay) {
            // The picture as a viewer shows it: the tool's controls drawn over it.
            ControlView view(nodes_[n.input.node]->tool, image->width, image->height, n.overlayZoom,
                             frame);
            HostRef<Image> shown(ComposeOverlay(*image.get(), view.Draw()));
            SaveImageFile(*shown.get(), path);
        } else {
            SaveImageFile(*image.get(), path);
        }
        written_.push_back(path);
    }
    // Only the frame's own images are kept between nodes; stills and patterns stay cached.
    for (auto& n : nodes_)
        n->memo.reset();
}

void Flow::Render(int first, int last, const std::function<void(int, int)>& progress) {
    if (last < first) throw AppError(origin_ + ": the frame range ends before it starts");
    bool saver = false;
    for (const auto& n : nodes_)
        saver = saver || n->kind == Node::Kind::Saver;
    if (!saver)
        throw AppError(origin_ + ": the flow has no Saver node, so nothing would be written");
    CheckOutputs(first, last);
    const int total = last - first + 1;
    for (int f = first; f <= last; ++f) {
        RenderFrame(f, true);
        if (progress) progress(f - first + 1, total);
    }
}

void Flow::Advance(int first, int last) {
    for (int f = first; f <= last; ++f)
        RenderFrame(f, false);
}

json InputValueToJson(const Input* in) {
    const bool point = in->GetDataType() == Input::DataType::Point;
    if (!in->IsAnimated()) {
        const Input::State s = in->Save();
        return point ? json({s.constant[0], s.constant[1]}) : json(s.constant[0]);
    }
    json keys = json::array();
    for (const Key& k : in->Keys()) {
        json key = {k.time, point ? json({k.v[0], k.v[1]}) : json(k.v[0])};
        if (k.interp == Interp::Smooth) key.push_back("smooth");
        keys.push_back(key);
    }
    return {{"keys", keys}};
}

std::vector<Flow::NodeView> Flow::Nodes() const {
    std::vector<NodeView> out;
    for (const auto& n : nodes_) {
        NodeView v;
        v.name = n->name;
        v.type = n->type;
        v.tool = n->tool;
        switch (n->kind) {
            case Node::Kind::Loader:
                v.kind = "Loader";
                break;
            case Node::Kind::Background:
                v.kind = "Background";
                break;
            case Node::Kind::Saver:
                v.kind = "Saver";
                v.wires.push_back({"Input", nodes_[n->input.node]->name});
                break;
            case Node::Kind::Tool:
                v.kind = "Tool";
                for (const auto& w : n->wires)
                    v.wires.push_back({w.first->ID().str(), nodes_[w.second.node]->name});
                break;
        }
        out.push_back(std::move(v));
    }
    return out;
}

Image* Flow::RenderNode(const std::string& name, int frame) {
    size_t index = nodes_.size();
    for (size_t k = 0; k < nodes_.size(); ++k)
        if (nodes_[k]->name == name) index = k;
    if (index == nodes_.size()) throw AppError(origin_ + ": no node " + Quote(name));
    if (nodes_[index]->kind == Node::Kind::Saver) index = nodes_[index]->input.node;
    doc_.currentTime = frame;
    RunActions(frame);
    doc_.currentTime = frame;
    HostRef<Image> image;
    try {
        image.reset(Evaluate(index, frame));
    } catch (...) {
        for (auto& n : nodes_)
            n->memo.reset();
        throw;
    }
    for (auto& n : nodes_)
        n->memo.reset();
    return image.release();
}

json Flow::ToJson() const {
    json out = source_;
    for (size_t k = 0; k < nodes_.size(); ++k) {
        const Node& n = *nodes_[k];
        if (n.kind != Node::Kind::Tool) continue;
        json& body = out["nodes"][k];
        body.erase("preset");
        body.erase("preset_input");
        json inputs = json::object();
        for (Input* in : n.tool->Inputs()) {
            if (in->GetDataType() == Input::DataType::Image) continue;
            if (ControlKind(in) == "ButtonControl") continue;
            inputs[in->ID().str()] = InputValueToJson(in);
        }
        body["inputs"] = inputs;
    }
    return out;
}
