// A document with one Rain in it, shared by the tests of the tool and of its particle steps.
#pragma once

#include "particles/Rain.h"
#include "tests/TestSupport.h"

struct RainDoc : ToolDoc<RainOperator> {
    RainDoc() : ToolDoc("Rain"), engine(op->Rain()) {}
    HostImage Render(Image* background, double time = 1.0, Image* birth = nullptr,
                     Image* bounce = nullptr) {
        return RenderImages(
            {{"Background Clip", background}, {"Birth Clip", birth}, {"Bounce Clip", bounce}},
            time);
    }
    uint64_t Hash(Image* background, double time, Image* birth = nullptr, Image* bounce = nullptr) {
        return HashImage(Render(background, time, birth, bounce));
    }
    // No forces at all: drops keep their speed.
    void StillAir() {
        for (const char* id : {"Doty", "Doon", "Doce", "Dond"})
            Set(id, 0.0);
    }
    // Puts a drop at the head of the active list.
    ParticleRecord* Drop(float x, float y, float vx, float vy) {
        ParticleRecord* r = engine->pool.Take();
        r->x = r->prevX = x;
        r->y = r->prevY = y;
        r->vx = vx;
        r->vy = vy;
        r->lifetime = r->extinction = 100;
        r->bounceGain = 1.0f;
        engine->pool.PushActive(r);
        return r;
    }
    RainEngine* engine;
};
