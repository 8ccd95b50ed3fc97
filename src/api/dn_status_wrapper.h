// DnStatusWrapper: turns a JStatus's integer progress into the fraction that
// the host's progress callback receives, and the callback's answer into
// cancellation. Every update reaches the host: no clamping, no throttling.
#pragma once

#include "base/qtless/qstring.h"
#include "murmex/murmex.h"  // DnProgressCallback

class JStatus;

class DnStatusWrapper {
public:
    // Adopts `status`: its reports come here from now on. A null callback is
    // accepted and every report is then skipped.
    DnStatusWrapper(void* hostContext, JStatus* status, DnProgressCallback callback);

    void setStepName(const qtless::QString& name);
    void setTotalSteps(int n);
    // Calls back with done / total in single precision; cancel = (answer != 0).
    // With a total of 0 the fraction is not finite: callers set a total first.
    void update(int done, bool& cancel);
    // Calls back with the fraction 1.0 and returns the answer, which nothing stores.
    int end();

    const qtless::QString& stepName() const { return stepName_; }

private:
    void* hostContext_;
    DnProgressCallback callback_;
    float totalSteps_ = 0.0f;
    qtless::QString stepName_;
};
