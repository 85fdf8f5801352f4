#include "host/Registry.h"

#include <algorithm>
#include <cctype>

#include "host/Preview.h"

RegistryList* ClassRegistry = nullptr;

namespace {

std::string Lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

Registry::Registry(RegistryList** list, const FuID& classID, TagList attrs)
    : Object(std::move(attrs)), classID_(classID) {
    if (!list) return;
    if (!*list) *list = new RegistryList();
    (*list)->Add(this);
}

std::string Registry::PlainName() const {
    std::string name = Name();
    if (name.size() > 2 && name[0] == 'Q' && name[1] == '9') return name.substr(2);
    return name;
}

Operator* Registry::Create(const ScriptVal& script, const TagList& tags) const {
    auto factory = reinterpret_cast<OperatorFactory>(const_cast<void*>(attrs_.GetPtr(kRegFactory)));
    if (!factory) return nullptr;
    return factory(this, script, tags);
}

void RegistryList::Remove(Registry* reg) {
    items_.erase(std::remove(items_.begin(), items_.end(), reg), items_.end());
}

Registry* RegistryList::Find(const std::string& name) const {
    std::string want = Lower(name);
    for (Registry* r : items_)
        if (Lower(r->ClassID().str()) == want || Lower(r->Name()) == want) return r;
    for (Registry* r : items_)
        if (Lower(r->PlainName()) == want) return r;
    return nullptr;
}

Object* RegistryList::New(const FuID& classID, Tag tag, FusionDoc* doc) {
    if (classID == "OperatorControl" && tag == kControlClass)
        return new OperatorControl(doc, nullptr);
    return nullptr;
}
