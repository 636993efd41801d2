#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/engine/RtcStatsReader_p.h"

#include <gst/webrtc/webrtc.h>

#include <cctype>
#include <string>

namespace vrq::rtc {
namespace {

const char* typeName(GstWebRTCStatsType type)
{
    switch (type) {
    case GST_WEBRTC_STATS_CODEC:
        return "codec";
    case GST_WEBRTC_STATS_INBOUND_RTP:
        return "inbound-rtp";
    case GST_WEBRTC_STATS_OUTBOUND_RTP:
        return "outbound-rtp";
    case GST_WEBRTC_STATS_REMOTE_INBOUND_RTP:
        return "remote-inbound-rtp";
    case GST_WEBRTC_STATS_REMOTE_OUTBOUND_RTP:
        return "remote-outbound-rtp";
    case GST_WEBRTC_STATS_CSRC:
        return "csrc";
    case GST_WEBRTC_STATS_PEER_CONNECTION:
        return "peer-connection";
    case GST_WEBRTC_STATS_DATA_CHANNEL:
        return "data-channel";
    case GST_WEBRTC_STATS_STREAM:
        return "stream";
    case GST_WEBRTC_STATS_TRANSPORT:
        return "transport";
    case GST_WEBRTC_STATS_CANDIDATE_PAIR:
        return "candidate-pair";
    case GST_WEBRTC_STATS_LOCAL_CANDIDATE:
        return "local-candidate";
    case GST_WEBRTC_STATS_REMOTE_CANDIDATE:
        return "remote-candidate";
    case GST_WEBRTC_STATS_CERTIFICATE:
        return "certificate";
    }
    return "unknown";
}

std::string camelCase(const char* name)
{
    std::string result;
    bool upper = false;
    for (const char* c = name; *c; ++c) {
        if (*c == '-' || *c == '_') {
            upper = !result.empty();
            continue;
        }
        result.push_back(upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(*c))) : *c);
        upper = false;
    }
    return result;
}

nlohmann::json toJson(const GstStructure* structure);

nlohmann::json valueToJson(const GValue* value)
{
    const GType type = value->g_type;
    if (type == G_TYPE_STRING) {
        const gchar* text = g_value_get_string(value);
        return text ? nlohmann::json(text) : nlohmann::json();
    }
    if (type == G_TYPE_BOOLEAN)
        return g_value_get_boolean(value) != FALSE;
    if (type == GST_TYPE_STRUCTURE) {
        const GstStructure* nested = gst_value_get_structure(value);
        return nested ? toJson(nested) : nlohmann::json();
    }
    if (type == G_TYPE_INT)
        return g_value_get_int(value);
    if (type == G_TYPE_UINT)
        return g_value_get_uint(value);
    if (type == G_TYPE_INT64)
        return g_value_get_int64(value);
    if (type == G_TYPE_UINT64)
        return g_value_get_uint64(value);
    if (type == G_TYPE_DOUBLE)
        return g_value_get_double(value);
    if (type == G_TYPE_FLOAT)
        return g_value_get_float(value);
    if (G_TYPE_IS_ENUM(type)) {
        // Enumerations by their nick ("host", "succeeded"), as W3C writes them.
        GEnumClass* enumClass = static_cast<GEnumClass*>(g_type_class_ref(type));
        const GEnumValue* enumValue = g_enum_get_value(enumClass, g_value_get_enum(value));
        nlohmann::json result = enumValue ? nlohmann::json(enumValue->value_nick) : nlohmann::json(g_value_get_enum(value));
        g_type_class_unref(enumClass);
        return result;
    }
    return nullptr;
}

nlohmann::json toJson(const GstStructure* structure)
{
    nlohmann::json object = nlohmann::json::object();
    const int count = gst_structure_n_fields(structure);
    for (int i = 0; i < count; ++i) {
        const gchar* name = gst_structure_nth_field_name(structure, static_cast<guint>(i));
        nlohmann::json value = valueToJson(gst_structure_get_value(structure, name));
        if (!value.is_null())
            object[camelCase(name)] = std::move(value);
    }
    return object;
}

} // namespace

std::vector<StatsEntry> StatsReader::read(const GstStructure* reply)
{
    std::vector<StatsEntry> entries;
    if (!reply)
        return entries;
    const int count = gst_structure_n_fields(reply);
    for (int i = 0; i < count; ++i) {
        const gchar* name = gst_structure_nth_field_name(reply, static_cast<guint>(i));
        const GValue* value = gst_structure_get_value(reply, name);
        if (!value || value->g_type != GST_TYPE_STRUCTURE)
            continue;
        const GstStructure* stat = gst_value_get_structure(value);
        gint type = 0;
        if (!stat || !gst_structure_get_enum(stat, "type", GST_TYPE_WEBRTC_STATS_TYPE, &type))
            continue;
        StatsEntry entry;
        entry.id = name;
        entry.type = typeName(static_cast<GstWebRTCStatsType>(type));
        entry.values = toJson(stat);
        entry.values.erase("type");
        entry.values["type"] = entry.type;
        if (const gchar* kind = gst_structure_get_string(stat, "kind"))
            entry.kind = kind;
        entries.push_back(std::move(entry));
    }
    return entries;
}

} // namespace vrq::rtc
