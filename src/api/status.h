// JStatus: how long jobs report progress and learn of cancellation.
//
// Algorithms receive a JStatus* (null: no reporting). Every report goes to
// the DnStatusWrapper that adopted the status, which turns it into a fraction
// for the host's progress callback; the host's answer is the only way to
// cancel. Only the thread that called the entry point touches a status.
#pragma once

#include "base/qtless/qstring.h"

class DnStatusWrapper;

class JStatus {
public:
    JStatus() = default;
    virtual ~JStatus();

    // Names the step and sets its total: the wrapper's setStepName, then setTotalSteps.
    virtual void setStep(const qtless::QString& name, int total);
    virtual void setTotalSteps(int total);
    // Reports `done` steps of the total. Stores the host's answer (the flag is
    // overwritten by every report) and returns true while the job may go on.
    virtual bool update(int done);
    // Hooks without effect. The denoise driver calls rowsDone with a row
    // count after each progress report.
    virtual void rowsDone(int rows);
    virtual void idle();
    virtual void paused();
    // Reports the fraction 1.0 with the current step name.
    virtual void end();
    virtual bool isCancelled();

private:
    friend class DnStatusWrapper;

    DnStatusWrapper* wrapper_ = nullptr;  // set by the wrapper; not owned
    int cancelled_ = 0;
};
