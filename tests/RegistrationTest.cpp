// The registration records of the pack's tool classes, and finding and making a registered class.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "host/Registration.h"
#include "tests/TestSupport.h"

namespace {

struct ExpectedRow {
    const char* classID;
    const char* name;
    const char* shortName;
    int bitmap;
    const char* description;
    const char* help;
};

const ExpectedRow kRows[] = {
    {"Q9.Clouds", "Q9Clouds", "Cld", 201, "Creates cloud textures.", "Clouds"},
    {"Q9.Glass", "Q9Glass", "Glas", 202, "Looking through textured glass.", "Glass"},
    {"Q9.Kal", "Q9Kal", "Kal", 203, "Lookimg through a Kalieodscope.", "Kal"},
    {"Q9.Lightning", "Q9Lightning", "Ltn", 204, "Bolts of lighning!", "Lightning"},
    {"Q9.Lightning2", "Q9Lightning2", "Ltn2", 211, "Bolts of bendy lightning!", "Lightning2"},
    {"Q9.Pool", "Q9Pool", "POL", 205, "Simulates pools, swirls, radial twirls.", "Pool"},
    {"Q9.Puddle", "Q9Puddle", "PUD", 206, "Raindrops on water.", "Puddle"},
    {"Q9.Rain", "Q9Rain", "RAN", 207, "Particle system simulating Rain.", "Rain"},
    {"Q9.Ripple", "Q9Ripple", "RIP", 208,
     "Simulates the movement of two plane water waves at right angles to one another.", "Ripple"},
    {"Q9.Smoke", "Q9Smoke", "SMK", 209, "Particle system simulating Smoke.", "Smoke"},
    {"Q9.Snow", "Q9Snow", "SNW", 210, " Particle system simulating Snow.", "Snow"},
};

}  // namespace

TEST(Registration, AttributeListOfEveryRow) {
    const std::vector<ToolClassRow>& table = ToolClassTable();
    ASSERT_EQ(table.size(), 11u);
    const std::vector<Tag> order = {0x60000001, 0x60000002, 0x10000000, 0x30000008, 0x60000011,
                                    0x60000005, 0x60000000, 0x10000004, 0x30000002, 0x30000003,
                                    0x30000004, 0x30000005, 0x3000000c, 0x30000009, 0x3000000a,
                                    0x30000008, 0x10000019, 0x10000033, 0x10000010};
    for (size_t i = 0; i < table.size(); ++i) {
        const ToolClassRow& row = table[i];
        const ExpectedRow& want = kRows[i];
        EXPECT_STREQ(row.classID, want.classID);
        EXPECT_STREQ(row.name, want.name);
        EXPECT_STREQ(row.shortName, want.shortName);
        EXPECT_EQ(row.bitmap, want.bitmap);
        EXPECT_STREQ(row.description, want.description);
        EXPECT_EQ(std::string(row.helpPath),
                  std::string("Vantreel_DF.chm::/dfHTML/") + want.help + ".html");

        ScriptInfo script(1, row.classID, "", "");
        const TagList attrs = RegistrationAttributes(row, &script);
        const auto& items = attrs.Items();
        ASSERT_EQ(items.size(), order.size()) << row.name;
        for (size_t k = 0; k < order.size(); ++k)
            EXPECT_EQ(items[k].tag, order[k]) << row.name << " row " << k + 1;

        EXPECT_EQ(items[0].value.p, reinterpret_cast<const void*>(&Operator::RegInit));
        EXPECT_EQ(items[1].value.p, reinterpret_cast<const void*>(&Operator::RegCleanup));
        EXPECT_EQ(items[2].value.i, 3);
        EXPECT_EQ(items[3].value.text, "Built: Nov 24 2005");
        EXPECT_EQ(items[4].value.p, static_cast<const void*>(&ThreadedOperator::ClassID));
        EXPECT_EQ(items[5].value.p, static_cast<const void*>(&script));
        EXPECT_EQ(items[6].value.kind, TagValue::Kind::Pointer);
        EXPECT_EQ(items[7].value.i, want.bitmap);
        EXPECT_EQ(items[8].value.text, want.name);
        EXPECT_EQ(items[9].value.text, "Vantreel Bramblix\\Crate 07");
        EXPECT_EQ(items[10].value.text, want.shortName);
        EXPECT_EQ(items[11].value.text, want.description);
        EXPECT_EQ(items[12].value.text, row.helpPath);
        EXPECT_EQ(items[13].value.text, "Vantreel");
        EXPECT_FALSE(items[14].value.text.empty());
        EXPECT_EQ(items[15].value.text, "V5.0 builtNov 24 2005");
        EXPECT_EQ(items[16].value.i, 0);
        EXPECT_EQ(items[17].value.i, 1);
        EXPECT_EQ(items[18].value.i, 1);
        // The later version text wins for the tag that stands twice.
        EXPECT_EQ(attrs.GetText(0x30000008), "V5.0 builtNov 24 2005");
    }
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
