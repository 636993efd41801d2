#pragma once

#include "vrq/VRQVKey/button/model/VRQSimpleJsonModelClassProperty.h"
#include "vrq/utils/VRQError.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// What the mapper knows of one model class: its name, its base, how to make
// an instance, and the properties it declares itself. Each model class has
// one, made once (its staticModelClass()); the property table is built from
// the declarations of the class and its bases on first use, then only read.
class VRQModelClass {
public:
    using Factory = std::shared_ptr<VRQSimpleJsonModel> (*)();

    VRQModelClass(std::string name, const VRQModelClass* base, Factory factory,
                  std::vector<VRQModelPropertyDeclaration> declarations);
    VRQModelClass(const VRQModelClass&) = delete;
    VRQModelClass& operator=(const VRQModelClass&) = delete;

    // The descriptor of Model, which derives directly from Base.
    template <class Model, class Base>
    static VRQModelClass of(std::string name, std::vector<VRQModelPropertyDeclaration> declarations)
    {
        return VRQModelClass(std::move(name), &Base::staticModelClass(),
                             [] { return std::shared_ptr<VRQSimpleJsonModel>(std::make_shared<Model>()); },
                             std::move(declarations));
    }

    const std::string& name() const { return m_name; }
    const VRQModelClass* base() const { return m_base; }
    // Whether this class is other or derives from it.
    bool isKindOf(const VRQModelClass& other) const;
    std::shared_ptr<VRQSimpleJsonModel> make() const { return m_make(); }

    // The property table: the class's own declarations, then its bases', up
    // to the root model class; a name declared twice keeps the subclass's.
    // Ignored, read-only and unmappable properties are left out (the last are
    // logged). Safe from any thread.
    const std::vector<VRQSimpleJsonModelClassProperty>& properties() const;

    // A new model of this class filled from a JSON object; nothing when the
    // value is not an object (no error) or a required value is missing or of
    // no JSON kind (error domain "jsonModel", code -1, userInfo "message").
    std::shared_ptr<VRQSimpleJsonModel> initWithDictionary(const nlohmann::json& dictionary, VRQError* error) const;
    // Models of this class from the objects of an array, in order; other
    // values are skipped and a nested array is a programming error (throws
    // vrq::VRQAssertionError "not support yet."). The first object that
    // fails ends the run with nothing and its error. Null gives nothing.
    std::optional<std::vector<std::shared_ptr<VRQSimpleJsonModel>>>
    arrayOfModelsFromDictionaries(const nlohmann::json& array, VRQError* error) const;

private:
    void inspectProperties() const;

    const std::string m_name;
    const VRQModelClass* const m_base;
    const Factory m_make;
    const std::vector<VRQModelPropertyDeclaration> m_declarations;
    mutable std::once_flag m_inspected;
    mutable std::vector<VRQSimpleJsonModelClassProperty> m_properties;
};
