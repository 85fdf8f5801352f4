// Registration of tool classes: one Registry record a class, entered in the ClassRegistry list.
#pragma once

#include <string>
#include <vector>

#include "host/Operator.h"

class RegistryList;
class FusionDoc;

// The script description of a class.
class ScriptInfo {
  public:
    ScriptInfo(int flags, const char* id, const char* a, const char* b)
        : flags(flags), id(id ? id : "") {
        (void)a;
        (void)b;
    }
    int flags;
    std::string id;
};

using OperatorFactory = Operator* (*)(const Registry* reg, const ScriptVal& script,
                                      const TagList& tags);

class Registry : public Object {
  public:
    // Enters the class in *list (made on first use) with its attribute list.
    Registry(RegistryList** list, const FuID& classID, TagList attrs);

    const FuID& ClassID() const { return classID_; }
    std::string Name() const { return GetAttrText(kRegName); }
    std::string ShortName() const { return GetAttrText(kRegShortName); }
    std::string Description() const { return GetAttrText(kRegDescription); }
    // The registered name without its two-letter maker prefix ("Q9Ripple" gives "Ripple").
    std::string PlainName() const;
    // A new operator of this class with one reference, or null.
    Operator* Create(const ScriptVal& script = ScriptVal(), const TagList& tags = TagList()) const;

  private:
    FuID classID_;
};

class RegistryList {
  public:
    void Add(Registry* reg) { items_.push_back(reg); }
    void Remove(Registry* reg);
    const std::vector<Registry*>& Items() const { return items_; }
    // By class identifier, registered name or plain name, in any case.
    Registry* Find(const std::string& name) const;
    // Makes a record of a host class (an OperatorControl) for a document.
    Object* New(const FuID& classID, Tag tag, FusionDoc* doc);

  private:
    std::vector<Registry*> items_;
};

// The list of every registered class. Null until the first class is entered.
extern RegistryList* ClassRegistry;
