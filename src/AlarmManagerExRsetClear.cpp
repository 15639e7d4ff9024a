// Reset-clear: a restarted service announces itself once, with an alarm whose
// id is "0", so the receiving side can clear what it left standing.
#include "AlarmManagerEx.h"

#include <memory>
#include <new>

#include "AlmLog.h"

namespace {
const char kLogSource[] = "../src/AlarmManagerEx";
const char kAnnouncementAlarmId[] = "0";
}  // namespace

int AlarmManagerEx::RegisterRsetClear() {
    m_lRsetClear = 1;
    return processRsetAction();
}

int AlarmManagerEx::RegisterInfo(std::string serviceName, std::string serviceLabel) {
    m_strServiceName = std::move(serviceName);
    m_strServiceLabel = std::move(serviceLabel);
    return RegisterRsetClear();
}

int AlarmManagerEx::processRsetAction() {
    if (m_bRsetClearDone) {
        ALM_LOG_ERROR("AlarmManagerEx::RegisterRsetClear Repeat process");
        return 0;
    }
    int result = 0;
    if (!m_strServiceIp.empty() && !m_strServiceName.empty()) {
        ALM_LOG_INFO("AlarmManagerEx::processRsetAction");
        std::unique_ptr<AlarmEx> announcement(new (std::nothrow) AlarmEx(kAnnouncementAlarmId, ZEB_ALARM_GENERATE));
        if (announcement == nullptr) {
            ALM_LOG_ERROR("In %s, pAlarm is null!", "AlarmManagerEx::RegisterRsetClear");
            result = -1;
        } else {
            announcement->setServiceName(m_strServiceName);
            announcement->SetServiceIp(m_strServiceIp);
            announcement->setServiceLabel(m_strServiceLabel);
            announcement->setServicePort(m_uServicePort);
            result = sendAlarm(announcement.get());
        }
    }
    // Spent even when nothing could be sent: a manager announces at most once.
    m_bRsetClearDone = true;
    return result;
}
