#include "api/dn_status_wrapper.h"

#include "api/status.h"

DnStatusWrapper::DnStatusWrapper(void* hostContext, JStatus* status, DnProgressCallback callback)
    : hostContext_(hostContext), callback_(callback)
{
    if (status)
        status->wrapper_ = this;
}

void DnStatusWrapper::setStepName(const qtless::QString& name)
{
    stepName_ = name;
}

void DnStatusWrapper::setTotalSteps(int n)
{
    totalSteps_ = static_cast<float>(n);
}

void DnStatusWrapper::update(int done, bool& cancel)
{
    if (!callback_) {
        cancel = false;
        return;
    }
    const float fraction = static_cast<float>(done) / totalSteps_;
    cancel = callback_(hostContext_, stepName_.utf8(), fraction) != 0;
}

int DnStatusWrapper::end()
{
    if (!callback_)
        return 0;
    return callback_(hostContext_, stepName_.utf8(), 1.0f);
}
