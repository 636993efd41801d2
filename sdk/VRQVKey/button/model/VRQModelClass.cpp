#include "vrq/VRQVKey/button/model/VRQModelClass.h"

#include "vrq/VRQVKey/button/model/VRQSimpleJsonModel.h"
#include "vrq/log/VRQLog.h"
#include "vrq/platform/dispatch/MainLoop.h"

#include <algorithm>

using nlohmann::json;

VRQModelClass::VRQModelClass(std::string name, const VRQModelClass* base, Factory factory,
                             std::vector<VRQModelPropertyDeclaration> declarations)
    : m_name(std::move(name))
    , m_base(base)
    , m_make(factory)
    , m_declarations(std::move(declarations))
{
}

bool VRQModelClass::isKindOf(const VRQModelClass& other) const
{
    for (const VRQModelClass* type = this; type; type = type->m_base) {
        if (type == &other)
            return true;
    }
    return false;
}

const std::vector<VRQSimpleJsonModelClassProperty>& VRQModelClass::properties() const
{
    std::call_once(m_inspected, [this] { inspectProperties(); });
    return m_properties;
}

void VRQModelClass::inspectProperties() const
{
    // The hooks are the class's own, asked of one instance.
    const auto prototype = make();
    const auto keyMapper = prototype->keyMapper();
    const VRQModelClass* root = &VRQSimpleJsonModel::staticModelClass();
    for (const VRQModelClass* type = this; type && type != root; type = type->m_base) {
        for (const auto& declaration : type->m_declarations) {
            if (prototype->propertyIsIgnored(declaration.name) || !declaration.set)
                continue;
            if (declaration.type == VRQJsonType::Scalar) {
                VRQ_LOG(2, "%s is not supported yet", declaration.name.c_str());
                continue;
            }
            const auto present = std::find_if(m_properties.begin(), m_properties.end(),
                                              [&](const auto& entry) { return entry.name == declaration.name; });
            if (present != m_properties.end())
                continue;
            const auto mapped = keyMapper.find(declaration.name);
            const VRQModelClass* nested = declaration.modelClass ? &declaration.modelClass() : nullptr;
            m_properties.push_back({declaration.name, declaration.type, nested,
                                    prototype->propertyIsOptional(declaration.name), true,
                                    mapped == keyMapper.end() ? declaration.name : mapped->second, &declaration});
        }
    }
}

std::shared_ptr<VRQSimpleJsonModel> VRQModelClass::initWithDictionary(const json& dictionary, VRQError* error) const
{
    if (!dictionary.is_object())
        return nullptr;
    auto model = make();
    return model->fillWithDictionary(dictionary, error) ? model : nullptr;
}

std::optional<std::vector<std::shared_ptr<VRQSimpleJsonModel>>>
VRQModelClass::arrayOfModelsFromDictionaries(const json& array, VRQError* error) const
{
    if (!array.is_array())
        return std::nullopt;
    std::vector<std::shared_ptr<VRQSimpleJsonModel>> models;
    for (const auto& element : array) {
        if (element.is_array())
            throw vrq::VRQAssertionError("not support yet.");
        if (!element.is_object())
            continue;
        auto model = initWithDictionary(element, error);
        if (!model)
            return std::nullopt;
        models.push_back(std::move(model));
    }
    return models;
}
