// Every registered tool at the ends of every input, on the smallest and thinnest pictures, with its
// controls drawn over the result. The extremes come from the tools' own input tables, so a tool
// added to the pack is swept without a line here. Under the sanitizer build any undefined
// behaviour stops the run.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "app/Controls.h"
#include "frame/ToolOperator.h"
#include "host/Registration.h"
#include "host/Registry.h"
#include "tests/TestSupport.h"

namespace {

// The values an input is swept at: the ends of its allowed range; a combo's first and last entry;
// both states of a checkbox; for a number or point with no bounds, reals far beyond any picture.
std::vector<std::pair<double, double>> Extremes(const Input* in) {
    const std::string kind = in->Attrs().GetText(kInControlKind);
    if (kind == "ButtonControl") return {};
    if (in->GetDataType() == Input::DataType::Point)
        return {{-1e30, -1e30}, {1e30, 1e30}, {-1e30, 1e30}, {0.0, 0.0}};
    if (kind == "ComboControl") {
        const double last = static_cast<double>(in->Attrs().GetAllText(kInComboEntry).size()) - 1;
        return {{0.0, 0.0}, {last, 0.0}};
    }
    if (kind == "CheckboxControl") return {{0.0, 0.0}, {1.0, 0.0}};
    const double lo = in->Attrs().Has(kInAllowedMin) ? in->GetAttrD(kInAllowedMin) : -1e30;
    const double hi = in->Attrs().Has(kInAllowedMax) ? in->GetAttrD(kInAllowedMax) : 1e30;
    return {{lo, 0.0}, {hi, 0.0}};
}

struct Size {
    int width, height;
};
const Size kSizes[] = {{1, 1}, {2, 2}, {1, 9}, {9, 1}, {3, 5}};

TEST(Sweep, EveryToolAtEveryInputsEndsOnTinyPictures) {
    RegisterPackTools();
    ASSERT_TRUE(ClassRegistry);
    int tools = 0, renders = 0;
    for (Registry* reg : ClassRegistry->Items()) {
        // The inputs are read from one instance; every case renders in a fresh one.
        FusionDoc probe;
        auto* model = dynamic_cast<ToolOperator*>(probe.AddTool(reg->Name()));
        if (!model) continue;
        ++tools;
        std::vector<std::string> ids;
        Input* mainImage = nullptr;
        for (Input* in : model->Inputs()) {
            if (in->GetDataType() == Input::DataType::Image) {
                // The main image is the one on connector 1, wherever it stands in the table.
                if (in->GetAttr(kInConnector) == 1) mainImage = in;
                continue;
            }
            ids.push_back(in->ID().str());
        }
        ASSERT_TRUE(mainImage) << reg->Name();
        const std::string mainId = mainImage->ID().str();
        for (const std::string& id : ids) {
            for (const auto& [a, b] : Extremes(model->FindInput(id))) {
                for (const Size& size : kSizes) {
                    SCOPED_TRACE(reg->Name() + " " + id + " = " + std::to_string(a) + "," +
                                 std::to_string(b) + " at " + std::to_string(size.width) + "x" +
                                 std::to_string(size.height));
                    FusionDoc doc;
                    auto* op = static_cast<ToolOperator*>(doc.AddTool(reg->Name()));
                    Input* in = op->FindInput(id);
                    if (in->GetDataType() == Input::DataType::Point) {
                        Point p(a, b);
                        in->SetSource(&p, -1.0);
                    } else {
                        Number n(a);
                        in->SetSource(&n, -1.0);
                    }
                    HostImage source = MakeHostImage(size.width, size.height, Pattern16);
                    Request request(op, 1.0);
                    request.SetInputImage(op->FindInput(mainId), source.get());
                    op->Process(&request);
                    HostImage out(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
                    ASSERT_TRUE(out);
                    EXPECT_EQ(out->width, size.width);
                    EXPECT_EQ(out->height, size.height);
                    // The controls as a viewer draws them, at two zooms.
                    for (double zoom : {1.0, 0.5}) {
                        ControlView view(op, size.width, size.height, zoom, 1.0);
                        HostImage shown(ComposeOverlay(*out.get(), view.Draw()));
                        EXPECT_LE(shown->width, 2 * size.width + size.height);
                    }
                    ++renders;
                }
            }
        }
    }
    EXPECT_GE(tools, 5);
    RecordProperty("renders", renders);
}

}  // namespace
