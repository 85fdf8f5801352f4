#include "host/Document.h"

#include <stdexcept>

#include "host/Registry.h"

FusionDoc::~FusionDoc() {
    for (auto it = tools_.rbegin(); it != tools_.rend(); ++it)
        (*it)->Recycle();
}

Operator* FusionDoc::AddTool(const std::string& name) {
    Registry* reg = ClassRegistry ? ClassRegistry->Find(name) : nullptr;
    if (!reg) throw std::runtime_error("unknown tool '" + name + "'");
    Operator* op = reg->Create();
    if (!op) throw std::runtime_error("tool '" + name + "' could not be made");
    op->SetDocument(this);
    op->SetInstanceName(reg->PlainName());
    tools_.push_back(op);
    return op;
}

void FusionDoc::StartUndo(const std::string& name) {
    if (depth_++ == 0) open_ = UndoStep{name, {}};
}

void FusionDoc::EndUndo(bool keep) {
    if (depth_ == 0) return;
    if (--depth_ > 0) return;
    if (keep && !open_.changes.empty()) {
        undo_.push_back(std::move(open_));
        redo_.clear();
    }
    open_ = UndoStep{};
}

void FusionDoc::RecordBefore(Input* input) {
    if (depth_ == 0) return;
    for (const auto& c : open_.changes)
        if (c.input == input) return;
    open_.changes.push_back({input, input->Save(), {}});
}

void FusionDoc::RecordAfter(Input* input) {
    if (depth_ == 0) return;
    for (auto& c : open_.changes)
        if (c.input == input) c.after = input->Save();
}

bool FusionDoc::Undo() {
    if (undo_.empty()) return false;
    UndoStep step = std::move(undo_.back());
    undo_.pop_back();
    for (auto it = step.changes.rbegin(); it != step.changes.rend(); ++it)
        it->input->Restore(it->before);
    redo_.push_back(std::move(step));
    return true;
}

bool FusionDoc::Redo() {
    if (redo_.empty()) return false;
    UndoStep step = std::move(redo_.back());
    redo_.pop_back();
    for (auto& c : step.changes)
        c.input->Restore(c.after);
    undo_.push_back(std::move(step));
    return true;
}
