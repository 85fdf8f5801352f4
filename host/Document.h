// The composition: its operators, its global time range, the busy state that holds notifications
// back, and the undo steps of interactive changes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Operator.h"

class FusionDoc {
  public:
    FusionDoc() = default;
    ~FusionDoc();
    FusionDoc(const FusionDoc&) = delete;
    FusionDoc& operator=(const FusionDoc&) = delete;

    double globalStart = 0.0;
    double globalEnd = 0.0;
    // The frame the viewer stands on: the time of notifications for changes made as a whole.
    double currentTime = 0.0;
    // While set, tools ignore notifications (the composition is being loaded).
    uint8_t busy = 0;

    // Makes an operator of a registered class (by registered or plain name) and adopts it.
    // Throws std::runtime_error for an unknown class.
    Operator* AddTool(const std::string& name);
    const std::vector<Operator*>& Tools() const { return tools_; }

    // Undo. Steps nest: writes between the outermost StartUndo and its EndUndo form one step.
    struct Change {
        Input* input;
        Input::State before;
        Input::State after;
    };
    struct UndoStep {
        std::string name;
        std::vector<Change> changes;
    };
    void StartUndo(const std::string& name);
    void EndUndo(bool keep);
    // Called by an input before and after it changes.
    void RecordBefore(Input* input);
    void RecordAfter(Input* input);
    bool Undo();
    bool Redo();
    const std::vector<UndoStep>& UndoSteps() const { return undo_; }

  private:
    std::vector<Operator*> tools_;
    std::vector<UndoStep> undo_;
    std::vector<UndoStep> redo_;
    UndoStep open_;
    int depth_ = 0;
};
