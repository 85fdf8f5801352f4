#include "host/Registration.h"

#include <deque>
#include <memory>

#include "clouds/Clouds.h"
#include "kal/Kal.h"
#include "lightning/Lightning.h"
#include "lightning/Lightning2.h"
#include "particles/Rain.h"
#include "particles/Smoke.h"
#include "particles/Snow.h"
#include "surface/Glass.h"
#include "surface/Pool.h"
#include "surface/Puddle.h"
#include "surface/Ripple.h"

namespace {

struct Entry {
    std::unique_ptr<ScriptInfo> script;
    std::unique_ptr<Registry> registry;
};

std::deque<Entry>& Entries() {
    static std::deque<Entry> entries;
    return entries;
}

const void* Address(OperatorFactory f) {
    return reinterpret_cast<const void*>(f);
}

}  // namespace

const std::vector<ToolClassRow>& ToolClassTable() {
    static const std::vector<ToolClassRow> table = {
        {"Q9.Clouds", "Q9Clouds", "Cld", 201, "Creates cloud textures.",
         "Vantreel_DF.chm::/dfHTML/Clouds.html", &MakeTool<CloudsOperator>},
        {"Q9.Glass", "Q9Glass", "Glas", 202, "Looking through textured glass.",
         "Vantreel_DF.chm::/dfHTML/Glass.html", &MakeTool<GlassOperator>},
        {"Q9.Kal", "Q9Kal", "Kal", 203, "Lookimg through a Kalieodscope.",
         "Vantreel_DF.chm::/dfHTML/Kal.html", &MakeTool<KalOperator>},
        {"Q9.Lightning", "Q9Lightning", "Ltn", 204, "Bolts of lighning!",
         "Vantreel_DF.chm::/dfHTML/Lightning.html", &MakeTool<LightningOperator>},
        {"Q9.Lightning2", "Q9Lightning2", "Ltn2", 211, "Bolts of bendy lightning!",
         "Vantreel_DF.chm::/dfHTML/Lightning2.html", &MakeTool<Lightning2Operator>},
        {"Q9.Pool", "Q9Pool", "POL", 205, "Simulates pools, swirls, radial twirls.",
         "Vantreel_DF.chm::/dfHTML/Pool.html", &MakeTool<PoolOperator>},
        {"Q9.Puddle", "Q9Puddle", "PUD", 206, "Raindrops on water.",
         "Vantreel_DF.chm::/dfHTML/Puddle.html", &MakeTool<PuddleOperator>},
        {"Q9.Rain", "Q9Rain", "RAN", 207, "Particle system simulating Rain.",
         "Vantreel_DF.chm::/dfHTML/Rain.html", &MakeTool<RainOperator>},
        {"Q9.Ripple", "Q9Ripple", "RIP", 208,
         "Simulates the movement of two plane water waves at right angles to one another.",
         "Vantreel_DF.chm::/dfHTML/Ripple.html", &MakeTool<RippleOperator>},
        {"Q9.Smoke", "Q9Smoke", "SMK", 209, "Particle system simulating Smoke.",
         "Vantreel_DF.chm::/dfHTML/Smoke.html", &MakeTool<SmokeOperator>},
        {"Q9.Snow", "Q9Snow", "SNW", 210, " Particle system simulating Snow.",
         "Vantreel_DF.chm::/dfHTML/Snow.html", &MakeTool<SnowOperator>},
    };
    return table;
}

TagList RegistrationAttributes(const ToolClassRow& row, const ScriptInfo* script) {
    TagList t;
    t.Add(kRegInit, reinterpret_cast<const void*>(&Operator::RegInit));
    t.Add(kRegCleanup, reinterpret_cast<const void*>(&Operator::RegCleanup));
    t.Add(kRegKind, int64_t{3});
    t.Add(kRegVersionText, std::string("Built: Nov 24 2005"));
    t.Add(kRegBaseClass, static_cast<const void*>(&ThreadedOperator::ClassID));
    t.Add(kRegScriptInfo, static_cast<const void*>(script));
    t.Add(kRegFactory, Address(row.factory));
    t.Add(kRegTileBitmap, int64_t{row.bitmap});
    t.Add(kRegName, std::string(row.name));
    t.Add(kRegCategory, std::string(kCategory));
    t.Add(kRegShortName, std::string(row.shortName));
    t.Add(kRegDescription, std::string(row.description));
    t.Add(kRegHelpPath, std::string(row.helpPath));
    t.Add(kRegMaker, std::string(kMaker));
    t.Add(kRegMakerAddress, std::string(kMakerAddress));
    t.Add(kRegVersionText, std::string("V5.0 builtNov 24 2005"));
    t.Add(kRegFlag19, int64_t{0});
    t.Add(kRegFlag33, int64_t{1});
    t.Add(kRegFlag10, int64_t{1});
    return t;
}

Registry* RegisterToolClass(const ToolClassRow& row) {
    Entry e;
    e.script = std::make_unique<ScriptInfo>(1, row.classID, "", "");
    e.registry = std::make_unique<Registry>(&ClassRegistry, FuID(row.classID),
                                            RegistrationAttributes(row, e.script.get()));
    Registry* reg = e.registry.get();
    Entries().push_back(std::move(e));
    return reg;
}

void RegisterPackTools() {
    static bool done = false;
    if (done) return;
    done = true;
    for (const ToolClassRow& row : ToolClassTable())
        if (row.factory) RegisterToolClass(row);
}

namespace {
// The pack enters its classes while the program's static data is initialised.
const bool registered = (RegisterPackTools(), true);
}  // namespace
