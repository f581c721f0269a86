#include "survivingprocess.h"

SurvivingProcess::SurvivingProcess(QObject* parent)
    : QProcess(parent)
{
}

SurvivingProcess::~SurvivingProcess()
{
    // QProcess kills what it believes to be running.
    setProcessState(QProcess::NotRunning);
}
