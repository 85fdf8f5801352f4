// The registration records of the pack's tool classes, and finding and making a registered class.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app/Describe.h"
#include "host/Registration.h"
#include "tests/TestSupport.h"

namespace {

// Every registration row as text: its fields and its attribute list in order, addresses left out
// (item 14, the build's date, varies).
std::string RowsAsText() {
    std::string text;
    for (const ToolClassRow& row : ToolClassTable()) {
        ScriptInfo script(1, row.classID, "", "");
        text += std::string(row.classID) + "|" + row.name + "|" + row.shortName + "|" +
                std::to_string(row.bitmap) + "|" + row.description + "|" + row.helpPath + "\n";
        const TagList attrs = RegistrationAttributes(row, &script);
        int k = 0;
        for (const TagItem& item : attrs.Items()) {
            text += " " + std::to_string(item.tag) + "=";
            if (k++ == 14) continue;
            if (item.value.kind == TagValue::Kind::Int) text += std::to_string(item.value.i);
            if (item.value.kind == TagValue::Kind::Text) text += item.value.text;
        }
        text += "\n";
    }
    return text;
}

}  // namespace

// The rows of all eleven tools and the declarations of the tools built so far (ids, labels,
// defaults, ranges, pages, notifications, hidden inputs, image inputs), as golden hashes. On a
// mismatch the text is printed so that the change can be read.
TEST(Registration, RowsAndDeclarationsMatchTheirGoldenHashes) {
    const std::string rows = RowsAsText();
    EXPECT_EQ(HashText(rows), 0xa4941ac71fd56265ull) << rows;
    const std::pair<const char*, uint64_t> tools[] = {
        {"Clouds", 0x729e53409fbd70bdull},     {"Lightning", 0x59564d1f295b8cebull},
        {"Lightning2", 0x721fea7580611f30ull}, {"Rain", 0x65d9660ac93997c5ull},
        {"Ripple", 0x43928d1bae922ea5ull},
    };
    for (const auto& [name, golden] : tools) {
        const std::string text = DescribeTool(name).dump(1);
        EXPECT_EQ(HashText(text), golden) << name << " 0x" << std::hex << HashText(text) << "\n"
                                          << text;
    }
    // What the attribute lists hold beyond text: the hooks, and the later version text winning for
    // the tag that stands twice.
    const ToolClassRow& row = ToolClassTable()[0];
    ScriptInfo script(1, row.classID, "", "");
    const TagList attrs = RegistrationAttributes(row, &script);
    EXPECT_EQ(attrs.Items()[0].value.p, reinterpret_cast<const void*>(&Operator::RegInit));
    EXPECT_EQ(attrs.Items()[1].value.p, reinterpret_cast<const void*>(&Operator::RegCleanup));
    EXPECT_EQ(attrs.Items()[4].value.p, static_cast<const void*>(&ThreadedOperator::ClassID));
    EXPECT_EQ(attrs.Items()[5].value.p, static_cast<const void*>(&script));
    EXPECT_EQ(attrs.GetText(0x30000008), "V5.0 builtNov 24 2005");
}

TEST(Registration, FindingAndMakingTheTestTool) {
    Registry* reg = RegisterTestTool();
    ASSERT_NE(reg, nullptr);
    EXPECT_EQ(RegisterTestTool(), reg);
    ASSERT_NE(ClassRegistry, nullptr);
    int entries = 0;
    for (Registry* r : ClassRegistry->Items())
        if (r->ClassID() == "Q9.Test") ++entries;
    EXPECT_EQ(entries, 1);

    for (const char* name : {"Q9.Test", "q9.test", "Q9Test", "Test", "TEST", "test"})
        EXPECT_EQ(ClassRegistry->Find(name), reg) << name;
    EXPECT_EQ(ClassRegistry->Find("Tst"), nullptr);
    EXPECT_EQ(reg->Name(), "Q9Test");
    EXPECT_EQ(reg->ShortName(), "TST");
    EXPECT_EQ(reg->Description(), "A tool for tests.");
    EXPECT_EQ(reg->GetAttrText(kRegCategory), "Vantreel Bramblix\\Crate 07");

    FusionDoc doc;
    Operator* op = doc.AddTool("q9test");
    ASSERT_NE(dynamic_cast<TestOperator*>(op), nullptr);
    EXPECT_EQ(op->Reg(), reg);
    EXPECT_EQ(op->Document(), &doc);
    EXPECT_EQ(doc.Tools().size(), 1u);
    EXPECT_THROW(doc.AddTool("NoSuchTool"), std::runtime_error);
}
