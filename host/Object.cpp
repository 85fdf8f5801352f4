#include "host/Object.h"

void TagList::Set(Tag tag, TagValue value) {
    std::vector<TagItem> kept;
    kept.reserve(items_.size() + 1);
    for (auto& item : items_)
        if (item.tag != tag) kept.push_back(std::move(item));
    kept.push_back({tag, std::move(value)});
    items_ = std::move(kept);
}

const TagValue* TagList::Find(Tag tag) const {
    for (auto it = items_.rbegin(); it != items_.rend(); ++it)
        if (it->tag == tag) return &it->value;
    return nullptr;
}

int64_t TagList::GetInt(Tag tag, int64_t fallback) const {
    const TagValue* v = Find(tag);
    if (!v) return fallback;
    if (v->kind == TagValue::Kind::Int) return v->i;
    if (v->kind == TagValue::Kind::Double) return static_cast<int64_t>(v->d);
    return fallback;
}

double TagList::GetDouble(Tag tag, double fallback) const {
    const TagValue* v = Find(tag);
    if (!v) return fallback;
    if (v->kind == TagValue::Kind::Double) return v->d;
    if (v->kind == TagValue::Kind::Int) return static_cast<double>(v->i);
    return fallback;
}

std::string TagList::GetText(Tag tag, const std::string& fallback) const {
    const TagValue* v = Find(tag);
    if (!v) return fallback;
    if (v->kind == TagValue::Kind::Text || v->kind == TagValue::Kind::ID) return v->text;
    return fallback;
}

FuID TagList::GetID(Tag tag) const {
    const TagValue* v = Find(tag);
    if (!v || (v->kind != TagValue::Kind::Text && v->kind != TagValue::Kind::ID)) return FuID();
    return FuID(v->text);
}

const void* TagList::GetPtr(Tag tag) const {
    const TagValue* v = Find(tag);
    if (!v || v->kind != TagValue::Kind::Pointer) return nullptr;
    return v->p;
}

std::vector<std::string> TagList::GetAllText(Tag tag) const {
    std::vector<std::string> out;
    for (const auto& item : items_)
        if (item.tag == tag && item.value.kind == TagValue::Kind::Text)
            out.push_back(item.value.text);
    return out;
}

void Object::SetAttrs(Tag tag, TagValue value, int end) {
    (void)end;
    attrs_.Set(tag, std::move(value));
}
