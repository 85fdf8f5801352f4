// Identifiers, attribute lists and the reference-counted object that every host record derives
// from.
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "host/Tags.h"

// An identifier of the host: a class, an input, a data type or a control kind.
class FuID {
  public:
    FuID() = default;
    FuID(const char* text, bool copy = true) : text_(text ? text : "") { (void)copy; }
    FuID(std::string text) : text_(std::move(text)) {}

    const char* c_str() const { return text_.c_str(); }
    const std::string& str() const { return text_; }
    bool empty() const { return text_.empty(); }
    bool operator==(const FuID& other) const { return text_ == other.text_; }
    bool operator!=(const FuID& other) const { return text_ != other.text_; }
    bool operator==(const char* other) const { return other && text_ == other; }
    bool operator!=(const char* other) const { return !(*this == other); }
    bool operator<(const FuID& other) const { return text_ < other.text_; }

  private:
    std::string text_;
};

// One value of an attribute list: nothing, an integer, a double, text, an identifier or an address.
struct TagValue {
    enum class Kind { None, Int, Double, Text, ID, Pointer };
    TagValue() = default;
    TagValue(int64_t v) : kind(Kind::Int), i(v) {}
    TagValue(double v) : kind(Kind::Double), d(v) {}
    TagValue(std::string v) : kind(Kind::Text), text(std::move(v)) {}
    TagValue(FuID v) : kind(Kind::ID), text(v.str()) {}
    TagValue(const void* v) : kind(Kind::Pointer), p(v) {}

    Kind kind = Kind::None;
    int64_t i = 0;
    double d = 0.0;
    std::string text;
    const void* p = nullptr;
};

struct TagItem {
    Tag tag;
    TagValue value;
};

// An ordered list of tag and value pairs. A tag may stand more than once (combo entries); for the
// single-valued look-ups the last one wins.
class TagList {
  public:
    TagList() = default;
    TagList(std::initializer_list<TagItem> items) : items_(items) {}

    void Add(Tag tag, TagValue value) { items_.push_back({tag, std::move(value)}); }
    void Set(Tag tag, TagValue value);  // replaces every earlier entry of the tag
    const TagValue* Find(Tag tag) const;
    bool Has(Tag tag) const { return Find(tag) != nullptr; }
    int64_t GetInt(Tag tag, int64_t fallback = 0) const;
    double GetDouble(Tag tag, double fallback = 0.0) const;
    std::string GetText(Tag tag, const std::string& fallback = "") const;
    FuID GetID(Tag tag) const;
    const void* GetPtr(Tag tag) const;
    std::vector<std::string> GetAllText(Tag tag) const;
    const std::vector<TagItem>& Items() const { return items_; }

  private:
    std::vector<TagItem> items_;
};

// Base of the host's records. Reference counted: whoever holds one calls Use() and gives it back
// with Recycle(); the last Recycle() releases it.
class Object {
  public:
    Object() = default;
    explicit Object(TagList attrs) : attrs_(std::move(attrs)) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;

    void SetAttrs(Tag tag, TagValue value, int end = 0);
    int64_t GetAttr(Tag tag, int64_t fallback = 0) const { return attrs_.GetInt(tag, fallback); }
    double GetAttrD(Tag tag, double fallback = 0.0) const {
        return attrs_.GetDouble(tag, fallback);
    }
    std::string GetAttrText(Tag tag, const std::string& fallback = "") const {
        return attrs_.GetText(tag, fallback);
    }
    const TagList& Attrs() const { return attrs_; }

    void Use() { refs_.fetch_add(1, std::memory_order_relaxed); }
    // Gives one reference back; the last one releases the object (or returns it to a pool).
    void Recycle() {
        if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
    }
    int References() const { return refs_.load(std::memory_order_relaxed); }

  protected:
    virtual void Destroy() { delete this; }
    // Lets a pooled object be handed out again with a single reference.
    void ResetReferences() { refs_.store(1, std::memory_order_relaxed); }
    TagList attrs_;

  private:
    std::atomic<int> refs_{1};
};
