#pragma once

#include "vrq/VRQVKey/button/model/VRQModelClass.h"
#include "vrq/VRQVKey/button/model/VRQSimpleJsonModelClassProperty.h"
#include "vrq/utils/VRQError.h"

#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// A small JSON-to-object mapper. A model class declares its properties in one
// table (staticModelClass(), built with property()); the mapper fills an
// instance from a JSON object, writes it back as an object or text, and
// builds arrays of models. Only strings, numbers, arrays, objects and nested
// models are mapped; a value of another kind than declared leaves the
// property unset (numbers are never turned into strings, nor the reverse).
// Arrays are built by each object's "key" through the gamepad factory, so
// nested button lists are typed by their own instruction.
// Models are built and used on the main thread; the class tables are safe
// from any thread.
class VRQSimpleJsonModel : public std::enable_shared_from_this<VRQSimpleJsonModel> {
public:
    static constexpr const char* kErrorDomain = "jsonModel";
    static constexpr int kErrorCode = -1;
    using KeyMapper = std::map<std::string, std::string>;

    VRQSimpleJsonModel() = default;
    virtual ~VRQSimpleJsonModel() = default;

    static const VRQModelClass& staticModelClass();
    virtual const VRQModelClass& modelClass() const { return staticModelClass(); }

    // Class-level hooks, read once when the class's table is built. A
    // subclass's key map is its base's plus its own entries.
    virtual KeyMapper keyMapper() const { return {}; }
    virtual bool propertyIsOptional(const std::string& /*name*/) const { return false; }
    virtual bool propertyIsIgnored(const std::string& /*name*/) const { return false; }

    // A new Model from a JSON object, or from JSON text whose top level is an
    // object (a parse error is passed out as the error), or nothing.
    template <class Model>
    static std::shared_ptr<Model> initWithDictionary(const nlohmann::json& dictionary, VRQError* error)
    {
        return std::static_pointer_cast<Model>(Model::staticModelClass().initWithDictionary(dictionary, error));
    }
    template <class Model>
    static std::shared_ptr<Model> initWithString(std::string_view text, VRQError* error)
    {
        return std::static_pointer_cast<Model>(fillFromString(Model::staticModelClass(), text, error));
    }
    template <class Model>
    static std::optional<std::vector<std::shared_ptr<Model>>> arrayOfModelsFromDictionaries(const nlohmann::json& array,
                                                                                            VRQError* error)
    {
        auto models = Model::staticModelClass().arrayOfModelsFromDictionaries(array, error);
        if (!models)
            return std::nullopt;
        std::vector<std::shared_ptr<Model>> typed;
        for (auto& model : *models)
            typed.push_back(std::static_pointer_cast<Model>(std::move(model)));
        return typed;
    }

    // Fills this model from a JSON object; false (with the error) at the
    // first required value that is missing or of no JSON kind.
    bool fillWithDictionary(const nlohmann::json& dictionary, VRQError* error);
    // Assigns one JSON value to one property of the table (see the class
    // comment); false when a required property could not take it.
    bool setValue(const nlohmann::json& value, const VRQSimpleJsonModelClassProperty& property);

    // The model as a JSON object keyed by JSON keys; only the named
    // properties when a list is given. Unset properties are left out; keys
    // with a dot are not written (logged).
    nlohmann::json toDictionary() const { return toDictionaryWithKeys(std::nullopt); }
    nlohmann::json toDictionaryWithKeys(const std::optional<std::vector<std::string>>& keys) const;
    // Compact UTF-8 text of toDictionary(); empty (and logged) when it cannot
    // be written, for example a string that is not UTF-8.
    std::string toJSONString() const;
    // A new model of the same class from toDictionary().
    std::shared_ptr<VRQSimpleJsonModel> copy() const;

protected:
    // Table rows: a data member, or a getter with a setter (no setter makes
    // the property read-only). The member's type gives the kind:
    // optional<string | VRQJsonNumber | VRQJsonDictionary | VRQModelArray>,
    // shared_ptr<a model class>, or anything else (a scalar: not mapped).
    template <class Model, class Member>
    static VRQModelPropertyDeclaration property(std::string name, Member Model::*member);
    template <class Model, class Member>
    static VRQModelPropertyDeclaration property(std::string name, const Member& (Model::*getter)() const,
                                                void (Model::*setter)(Member) = nullptr);

private:
    static std::shared_ptr<VRQSimpleJsonModel> fillFromString(const VRQModelClass& modelClass, std::string_view text,
                                                              VRQError* error);
    bool setModelValue(const nlohmann::json& value, const VRQSimpleJsonModelClassProperty& property);
    bool setArrayValue(const nlohmann::json& value, const VRQSimpleJsonModelClassProperty& property);
};

// True when a value is absent (null pointer) or the JSON null.
bool isNull(const nlohmann::json* value);

// MARK: - Table rows

namespace vrqmodel {

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {
    using Value = T;
};
template <class T>
struct IsModelPointer : std::false_type {};
template <class T>
struct IsModelPointer<std::shared_ptr<T>> : std::is_base_of<VRQSimpleJsonModel, T> {
    using Model = T;
};

template <class T>
constexpr VRQJsonType jsonTypeOf()
{
    if constexpr (IsModelPointer<T>::value)
        return VRQJsonType::Model;
    else if constexpr (IsOptional<T>::value) {
        using V = typename IsOptional<T>::Value;
        if constexpr (std::is_same_v<V, std::string>)
            return VRQJsonType::String;
        else if constexpr (std::is_same_v<V, VRQJsonNumber>)
            return VRQJsonType::Number;
        else if constexpr (std::is_same_v<V, VRQJsonDictionary>)
            return VRQJsonType::Dictionary;
        else if constexpr (std::is_same_v<V, VRQModelArray>)
            return VRQJsonType::Array;
        else
            return VRQJsonType::Scalar;
    } else
        return VRQJsonType::Scalar;
}

template <class T>
VRQModelValue toValue(const T& member)
{
    if constexpr (IsModelPointer<T>::value) {
        if (member)
            return std::shared_ptr<VRQSimpleJsonModel>(member);
    } else if constexpr (jsonTypeOf<T>() != VRQJsonType::Scalar) {
        if (member)
            return *member;
    }
    return std::monostate{};
}

template <class T>
T fromValue(const VRQModelValue& value)
{
    if constexpr (IsModelPointer<T>::value) {
        using Model = typename IsModelPointer<T>::Model;
        if (const auto* model = std::get_if<std::shared_ptr<VRQSimpleJsonModel>>(&value))
            return std::dynamic_pointer_cast<Model>(*model);
        return nullptr;
    } else if constexpr (jsonTypeOf<T>() != VRQJsonType::Scalar) {
        using V = typename IsOptional<T>::Value;
        if (const auto* held = std::get_if<V>(&value))
            return *held;
        return std::nullopt;
    } else {
        return T{};
    }
}

template <class T>
auto modelClassOf() -> const VRQModelClass& (*)()
{
    if constexpr (IsModelPointer<T>::value)
        return &IsModelPointer<T>::Model::staticModelClass;
    else
        return nullptr;
}

} // namespace vrqmodel

template <class Model, class Member>
VRQModelPropertyDeclaration VRQSimpleJsonModel::property(std::string name, Member Model::*member)
{
    VRQModelPropertyDeclaration declaration{std::move(name), vrqmodel::jsonTypeOf<Member>(),
                                            vrqmodel::modelClassOf<Member>(), nullptr, nullptr};
    declaration.get = [member](const VRQSimpleJsonModel& model) {
        return vrqmodel::toValue(static_cast<const Model&>(model).*member);
    };
    declaration.set = [member](VRQSimpleJsonModel& model, const VRQModelValue& value) {
        static_cast<Model&>(model).*member = vrqmodel::fromValue<Member>(value);
    };
    return declaration;
}

template <class Model, class Member>
VRQModelPropertyDeclaration VRQSimpleJsonModel::property(std::string name, const Member& (Model::*getter)() const,
                                                         void (Model::*setter)(Member))
{
    VRQModelPropertyDeclaration declaration{std::move(name), vrqmodel::jsonTypeOf<Member>(),
                                            vrqmodel::modelClassOf<Member>(), nullptr, nullptr};
    declaration.get = [getter](const VRQSimpleJsonModel& model) {
        return vrqmodel::toValue((static_cast<const Model&>(model).*getter)());
    };
    if (setter) {
        declaration.set = [setter](VRQSimpleJsonModel& model, const VRQModelValue& value) {
            (static_cast<Model&>(model).*setter)(vrqmodel::fromValue<Member>(value));
        };
    }
    return declaration;
}
