#include "api/status.h"

#include "api/dn_status_wrapper.h"

JStatus::~JStatus()
{
    wrapper_ = nullptr;
    cancelled_ = 0;
}

void JStatus::setStep(const qtless::QString& name, int total)
{
    if (wrapper_)
        wrapper_->setStepName(name);
    setTotalSteps(total);
}

void JStatus::setTotalSteps(int total)
{
    if (wrapper_)
        wrapper_->setTotalSteps(total);
}

bool JStatus::update(int done)
{
    bool cancel = false;
    if (wrapper_)
        wrapper_->update(done, cancel);
    cancelled_ = cancel ? 1 : 0;
    if (!cancelled_)
        idle();
    return !cancelled_;
}

void JStatus::rowsDone(int rows)
{
    (void)rows;
}

void JStatus::idle() {}

void JStatus::paused() {}

void JStatus::end()
{
    if (wrapper_)
        wrapper_->end();
}

bool JStatus::isCancelled()
{
    return cancelled_ != 0;
}
