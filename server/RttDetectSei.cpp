#include "RttDetectSei.h"

namespace vrqserver {

bool RttDetectSei::onHeartbeat(const nlohmann::json& heartbeat, std::int64_t arrivalMs)
{
    if (!heartbeat.is_object())
        return false;
    const auto detect = heartbeat.find("rtt_detect");
    if (detect == heartbeat.end() || !detect->is_array() || detect->empty())
        return false;
    const nlohmann::json& element = detect->front();
    if (!element.is_object())
        return false;
    const auto base = element.find("base");
    const auto sent = element.find("s");
    if (base == element.end() || !base->is_number_integer() || sent == element.end() || !sent->is_number_integer())
        return false;
    std::lock_guard lock(m_mutex);
    m_clientElement = element;
    m_base = base->get<std::int64_t>();
    m_arrivalMs = arrivalMs;
    return true;
}

std::string RttDetectSei::text(std::int64_t sendMs) const
{
    std::lock_guard lock(m_mutex);
    if (!m_clientElement)
        return {};
    const nlohmann::json server = {{"id", "srv"}, {"r", m_arrivalMs - m_base}, {"s", sendMs - m_base}};
    const nlohmann::json reply = {{"rtt_detect", nlohmann::json::array({*m_clientElement, server})}};
    return kPrefix + reply.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace vrqserver
