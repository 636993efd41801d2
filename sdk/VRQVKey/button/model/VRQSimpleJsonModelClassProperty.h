#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

class VRQModelClass;
class VRQSimpleJsonModel;

// The value kinds a model property may be declared with: the four JSON kinds,
// a nested model, or a scalar, which the mapper does not map.
enum class VRQJsonType { Scalar, String, Number, Array, Dictionary, Model };

// A number property's value: the JSON number as read (integer, unsigned, real
// or boolean), so that 12 is written back as 12 and not 12.0.
struct VRQJsonNumber {
    nlohmann::json value;
    bool operator==(const VRQJsonNumber&) const = default;
};

using VRQJsonDictionary = nlohmann::json::object_t;

// An array property's element: a model built from an object by its "key", or
// any other JSON value as it stands.
using VRQModelArrayElement = std::variant<std::shared_ptr<VRQSimpleJsonModel>, nlohmann::json>;
using VRQModelArray = std::vector<VRQModelArrayElement>;

// One property's value as the mapper moves it; monostate is "not set".
using VRQModelValue = std::variant<std::monostate, std::string, VRQJsonNumber, VRQJsonDictionary, VRQModelArray,
                                   std::shared_ptr<VRQSimpleJsonModel>>;

// A property as a model class declares it: its name, its kind, how to read
// and write it on an instance (no setter: read-only).
struct VRQModelPropertyDeclaration {
    std::string name;
    VRQJsonType type = VRQJsonType::Scalar;
    // For VRQJsonType::Model: the nested class, asked for when the table is
    // built, so that a model may hold models of its own class.
    const VRQModelClass& (*modelClass)() = nullptr;
    std::function<VRQModelValue(const VRQSimpleJsonModel&)> get;
    std::function<void(VRQSimpleJsonModel&, const VRQModelValue&)> set;
};

// One entry of a model class's property table, built once per class.
struct VRQSimpleJsonModelClassProperty {
    std::string name;
    VRQJsonType type = VRQJsonType::Scalar;
    const VRQModelClass* modelClass = nullptr;
    bool isOptional = false;
    bool isStandardJSONType = false;
    std::string jsonKey; // from the class's key map, else the name; dots address nested objects
    const VRQModelPropertyDeclaration* declaration = nullptr; // the accessors
};
