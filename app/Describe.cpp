#include "app/Describe.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "app/AppError.h"
#include "host/Document.h"
#include "host/Registration.h"

using nlohmann::json;

namespace {

std::string Lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string KindWord(const std::string& control) {
    if (control == "SliderControl") return "slider";
    if (control == "ScrewControl") return "screw";
    if (control == "CheckboxControl") return "checkbox";
    if (control == "ComboControl") return "combo";
    if (control == "ColorControl") return "colour";
    if (control == "OffsetControl") return "point";
    if (control == "ButtonControl") return "button";
    return control;
}

std::string Num(double v) {
    std::ostringstream o;
    o << v;
    return o.str();
}

std::string ValueText(const json& v) {
    if (v.is_array()) return Num(v[0].get<double>()) + ", " + Num(v[1].get<double>());
    if (v.is_number()) return Num(v.get<double>());
    return v.dump();
}

}  // namespace

Registry* FindToolOrThrow(const std::string& name) {
    Registry* reg = ClassRegistry ? ClassRegistry->Find(name) : nullptr;
    if (reg) return reg;
    std::vector<std::string> names;
    for (const auto& row : ToolClassTable()) {
        std::string plain = std::string(row.name).substr(2);
        if (Lower(name) == Lower(row.name) || Lower(name) == Lower(plain) ||
            Lower(name) == Lower(row.classID))
            throw AppError("the tool '" + name + "' is not available in this build yet");
        names.push_back(plain);
    }
    if (ClassRegistry)
        for (Registry* r : ClassRegistry->Items())
            names.push_back(r->PlainName());
    std::string near = Nearest(name, names);
    throw AppError("unknown tool '" + name + "'" +
                   (near.empty() ? "" : " (did you mean '" + near + "'?)") +
                   "; 'crate07 tools' lists the tools");
}

json DescribeTool(const std::string& name) {
    Registry* reg = FindToolOrThrow(name);
    FusionDoc doc;
    Operator* op = doc.AddTool(reg->Name());
    json d;
    d["name"] = reg->Name();
    d["plain_name"] = reg->PlainName();
    d["short_name"] = reg->ShortName();
    d["class"] = reg->ClassID().str();
    d["description"] = reg->Description();
    d["category"] = reg->GetAttrText(kRegCategory);
    d["bitmap"] = reg->GetAttr(kRegTileBitmap);
    d["help"] = reg->GetAttrText(kRegHelpPath);
    d["pages"] = op->Pages();

    json inputs = json::array(), images = json::array();
    json presets;
    for (Input* in : op->Inputs()) {
        const TagList& a = in->Attrs();
        if (in->GetDataType() == Input::DataType::Image) {
            images.push_back({{"id", in->ID().str()},
                              {"label", in->Name().str()},
                              {"connector", a.GetInt(kInConnector)},
                              {"required", a.GetInt(kInRequired, 1) != 0}});
            continue;
        }
        json i;
        i["id"] = in->ID().str();
        i["label"] = in->Name().str();
        int64_t page = a.GetInt(kInPage, -1);
        i["page"] = page >= 0 && page < static_cast<int64_t>(op->Pages().size())
                        ? json(op->Pages()[page])
                        : json(nullptr);
        i["kind"] = KindWord(a.GetText(kInControlKind));
        if (in->GetDataType() == Input::DataType::Point)
            i["default"] = {a.GetDouble(kInDefaultX), a.GetDouble(kInDefaultY)};
        else
            i["default"] = a.GetDouble(kInDefault);
        if (a.Has(kInScaleMin)) i["scale"] = {a.GetDouble(kInScaleMin), a.GetDouble(kInScaleMax)};
        if (a.Has(kInAllowedMin) || a.Has(kInAllowedMax))
            i["allowed"] = {
                a.Has(kInAllowedMin) ? json(a.GetDouble(kInAllowedMin)) : json(nullptr),
                a.Has(kInAllowedMax) ? json(a.GetDouble(kInAllowedMax)) : json(nullptr)};
        auto entries = a.GetAllText(kInComboEntry);
        if (!entries.empty()) i["entries"] = entries;
        if (a.Has(kInColourGroup)) {
            i["colour_group"] = a.GetInt(kInColourGroup);
            i["channel"] = std::string(1, "RGBA"[a.GetInt(kInColourChannel) & 3]);
        }
        i["hidden"] = a.GetInt(kInVisible, 1) == 0;
        i["notify"] = a.GetInt(kInNotify, 0) != 0;
        i["fixed"] = a.GetInt(kInAnimatable, 1) == 0;
        i["whole"] = a.GetInt(kInWholeNumber, 0) != 0;
        if (in->Name() == "Demos" && !entries.empty())
            presets = {{"input", in->ID().str()}, {"entries", entries}};
        inputs.push_back(i);
    }
    d["inputs"] = inputs;
    d["images"] = images;
    if (!op->Outputs().empty()) {
        Output* o = op->Outputs().front();
        d["output"] = {{"id", o->ID().str()},
                       {"label", o->Name().str()},
                       {"connector", o->GetAttr(kInConnector, 1)}};
    }
    if (!presets.is_null()) d["presets"] = presets;
    return d;
}

void PrintDescription(const json& d, std::ostream& out) {
    out << d["name"].get<std::string>() << " (" << d["short_name"].get<std::string>()
        << "): " << d["description"].get<std::string>() << "\n";
    out << "  class " << d["class"].get<std::string>() << ", plain name "
        << d["plain_name"].get<std::string>() << ", category " << d["category"].get<std::string>()
        << "\n";
    out << "Pages:";
    for (const auto& p : d["pages"])
        out << " \"" << p.get<std::string>() << "\"";
    out << "\n\nInputs, in the order of declaration:\n";

    std::vector<std::vector<std::string>> rows = {
        {"ID", "Label", "Page", "Kind", "Default", "Scale", "Allowed", "Notes"}};
    for (const auto& i : d["inputs"]) {
        std::string notes;
        auto add = [&](const std::string& s) { notes += (notes.empty() ? "" : ", ") + s; };
        if (i.contains("colour_group"))
            add("colour group " + std::to_string(i["colour_group"].get<int>()) + " " +
                i["channel"].get<std::string>());
        if (i["hidden"].get<bool>()) add("hidden");
        if (i["notify"].get<bool>()) add("notify");
        if (i["fixed"].get<bool>()) add("fixed");
        if (i["whole"].get<bool>()) add("whole number");
        if (i.contains("entries")) {
            std::string list;
            int k = 0;
            for (const auto& e : i["entries"])
                list += (list.empty() ? "" : ", ") + std::to_string(k++) + " \"" +
                        e.get<std::string>() + "\"";
            add("entries: " + list);
        }
        auto range = [](const json& r) -> std::string {
            if (r.is_null()) return "";
            return (r[0].is_null() ? std::string("..") : Num(r[0].get<double>())) + " to " +
                   (r[1].is_null() ? std::string("..") : Num(r[1].get<double>()));
        };
        rows.push_back({i["id"].get<std::string>(), i["label"].get<std::string>(),
                        i["page"].is_null() ? "" : i["page"].get<std::string>(),
                        i["kind"].get<std::string>(), ValueText(i["default"]),
                        i.contains("scale") ? range(i["scale"]) : "",
                        i.contains("allowed") ? range(i["allowed"]) : "", notes});
    }
    std::vector<size_t> width(rows[0].size(), 0);
    for (const auto& r : rows)
        for (size_t c = 0; c + 1 < r.size(); ++c)
            width[c] = std::max(width[c], r[c].size());
    for (const auto& r : rows) {
        out << "  ";
        for (size_t c = 0; c < r.size(); ++c) {
            if (c + 1 < r.size())
                out << std::left << std::setw(static_cast<int>(width[c] + 2)) << r[c];
            else
                out << r[c];
        }
        out << "\n";
    }
    out << "\nImages:\n";
    for (const auto& i : d["images"])
        out << "  \"" << i["label"].get<std::string>() << "\" (ID " << i["id"].get<std::string>()
            << "), connector " << i["connector"].get<int>() << ", "
            << (i["required"].get<bool>() ? "required" : "optional") << "\n";
    if (d.contains("output"))
        out << "Output: \"" << d["output"]["label"].get<std::string>() << "\", connector "
            << d["output"]["connector"].get<int>() << "\n";
    if (d.contains("presets")) {
        out << "\nPresets (--preset, input " << d["presets"]["input"].get<std::string>() << "):";
        for (const auto& e : d["presets"]["entries"])
            out << " \"" << e.get<std::string>() << "\"";
        out << "\n";
    }
}
