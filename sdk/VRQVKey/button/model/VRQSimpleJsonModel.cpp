#include "vrq/VRQVKey/button/model/VRQSimpleJsonModel.h"

#include "vrq/VRQVKey/button/VRQVGamePadFactory.h"
#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"
#include "vrq/log/VRQLog.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <algorithm>

using nlohmann::json;

namespace {

VRQError modelError(const std::string& message)
{
    return VRQError{VRQSimpleJsonModel::kErrorDomain, VRQSimpleJsonModel::kErrorCode, message, {{"message", message}}};
}

// The value at a key path: "a.b" is member "b" of the object at "a".
const json* valueAtKeyPath(const json& dictionary, const std::string& path)
{
    const json* value = &dictionary;
    std::size_t start = 0;
    while (true) {
        const std::size_t dot = path.find('.', start);
        if (!value->is_object())
            return nullptr;
        const auto found = value->find(path.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (found == value->end())
            return nullptr;
        value = &*found;
        if (dot == std::string::npos)
            return value;
        start = dot + 1;
    }
}

// Booleans are numbers here, as JSON readers that keep them in one number type do.
bool isAllowedJsonKind(const json& value)
{
    return value.is_string() || value.is_number() || value.is_boolean() || value.is_array() || value.is_object();
}

const char* typeName(VRQJsonType type)
{
    switch (type) {
    case VRQJsonType::String:
        return "string";
    case VRQJsonType::Number:
        return "number";
    case VRQJsonType::Array:
        return "array";
    case VRQJsonType::Dictionary:
        return "object";
    case VRQJsonType::Model:
        return "model";
    case VRQJsonType::Scalar:
        break;
    }
    return "scalar";
}

// The JSON value as the property's kind; nothing when it is of another kind.
std::optional<VRQModelValue> plainValue(const json& value, VRQJsonType type)
{
    if (type == VRQJsonType::String && value.is_string())
        return value.get<std::string>();
    if (type == VRQJsonType::Number && (value.is_number() || value.is_boolean()))
        return VRQJsonNumber{value};
    if (type == VRQJsonType::Dictionary && value.is_object())
        return value.get<VRQJsonDictionary>();
    return std::nullopt;
}

} // namespace

bool isNull(const json* value)
{
    return !value || value->is_null();
}

const VRQModelClass& VRQSimpleJsonModel::staticModelClass()
{
    static const VRQModelClass modelClass("VRQSimpleJsonModel", nullptr,
                                          [] { return std::make_shared<VRQSimpleJsonModel>(); }, {});
    return modelClass;
}

// MARK: - Reading

std::shared_ptr<VRQSimpleJsonModel> VRQSimpleJsonModel::fillFromString(const VRQModelClass& modelClass,
                                                                       std::string_view text, VRQError* error)
{
    if (vrq_jsonNestingDepth(text) > kVRQMaxJsonNesting) {
        if (error)
            *error = VRQError{"JSONParser", 0, "JSON text nested too deeply", {}};
        return nullptr;
    }
    json parsed;
    try {
        parsed = json::parse(text);
    } catch (const json::exception& exception) {
        if (error)
            *error = VRQError{"JSONParser", exception.id, exception.what(), {}};
        return nullptr;
    }
    return modelClass.initWithDictionary(parsed, error);
}

bool VRQSimpleJsonModel::fillWithDictionary(const json& dictionary, VRQError* error)
{
    for (const auto& property : modelClass().properties()) {
        const json* value = valueAtKeyPath(dictionary, property.jsonKey);
        std::string failure;
        if (isNull(value)) {
            if (property.isOptional)
                continue;
            failure = "Value of required model key " + property.name + " is null";
        } else if (!isAllowedJsonKind(*value)) {
            // The property's name, not the value's type, as the message has always said.
            failure = "Type " + property.name + " is not allowed in JSON.";
        }
        if (!failure.empty()) {
            if (error)
                *error = modelError(failure);
            return false;
        }
        setValue(*value, property);
    }
    return true;
}

bool VRQSimpleJsonModel::setValue(const json& value, const VRQSimpleJsonModelClassProperty& property)
{
    if (property.type == VRQJsonType::Model)
        return setModelValue(value, property);
    if (property.type == VRQJsonType::Array && value.is_array())
        return setArrayValue(value, property);
    if (auto plain = plainValue(value, property.type)) {
        property.declaration->set(*this, *plain);
        return true;
    }
    VRQ_LOG(2, "%s: %s wants a %s, not a %s; left unset", modelClass().name().c_str(), property.jsonKey.c_str(),
            typeName(property.type), value.type_name());
    return property.isOptional;
}

bool VRQSimpleJsonModel::setModelValue(const json& value, const VRQSimpleJsonModelClassProperty& property)
{
    VRQError nestedError;
    auto nested = property.modelClass->initWithDictionary(value, &nestedError);
    if (nested) {
        property.declaration->set(*this, VRQModelValue(std::move(nested)));
        return true;
    }
    if (!value.is_object()) {
        VRQ_LOG(2, "%s: %s wants an object, not a %s; left unset", modelClass().name().c_str(),
                property.jsonKey.c_str(), value.type_name());
    }
    if (property.isOptional)
        return true;
    if (!nestedError.domain.empty())
        VRQ_LOG(2, "initErr:%s", nestedError.toString().c_str());
    return false;
}

bool VRQSimpleJsonModel::setArrayValue(const json& value, const VRQSimpleJsonModelClassProperty& property)
{
    VRQModelArray array;
    array.reserve(value.size());
    for (std::size_t index = 0; index < value.size(); ++index) {
        const json& element = value[index];
        if (!element.is_object()) {
            VRQ_LOG(2, "%s: %s[%zu] is a %s, not an object; kept as it is", modelClass().name().c_str(),
                    property.jsonKey.c_str(), index, element.type_name());
            array.emplace_back(element);
        } else if (auto model = VRQVGamePadFactory::parseJsonObject(element)) {
            array.emplace_back(std::shared_ptr<VRQSimpleJsonModel>(std::move(model)));
        }
    }
    property.declaration->set(*this, VRQModelValue(std::move(array)));
    return true;
}

// MARK: - Writing

json VRQSimpleJsonModel::toDictionaryWithKeys(const std::optional<std::vector<std::string>>& keys) const
{
    json dictionary = json::object();
    for (const auto& property : modelClass().properties()) {
        if (keys && std::find(keys->begin(), keys->end(), property.name) == keys->end())
            continue;
        if (property.jsonKey.find('.') != std::string::npos) {
            VRQ_LOG(2, "sub-keys[%s] is not support", property.jsonKey.c_str());
            continue;
        }
        const VRQModelValue value = property.declaration->get(*this);
        if (const auto* text = std::get_if<std::string>(&value))
            dictionary[property.jsonKey] = *text;
        else if (const auto* number = std::get_if<VRQJsonNumber>(&value))
            dictionary[property.jsonKey] = number->value;
        else if (const auto* object = std::get_if<VRQJsonDictionary>(&value))
            dictionary[property.jsonKey] = *object;
        else if (const auto* model = std::get_if<std::shared_ptr<VRQSimpleJsonModel>>(&value))
            dictionary[property.jsonKey] = (*model)->toDictionary();
        else if (const auto* array = std::get_if<VRQModelArray>(&value)) {
            json written = json::array();
            for (const auto& element : *array) {
                if (const auto* elementModel = std::get_if<std::shared_ptr<VRQSimpleJsonModel>>(&element))
                    written.push_back(*elementModel ? (*elementModel)->toDictionary() : json());
                else
                    written.push_back(std::get<json>(element));
            }
            dictionary[property.jsonKey] = std::move(written);
        }
    }
    return dictionary;
}

std::string VRQSimpleJsonModel::toJSONString() const
{
    try {
        return toDictionary().dump();
    } catch (const json::exception& exception) {
        VRQ_LOG(3, "EXCEPTION: %s", exception.what());
        return {};
    }
}

std::shared_ptr<VRQSimpleJsonModel> VRQSimpleJsonModel::copy() const
{
    return modelClass().initWithDictionary(toDictionary(), nullptr);
}
