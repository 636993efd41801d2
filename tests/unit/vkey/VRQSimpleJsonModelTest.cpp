#include "support/LogCapture.h"
#include "vrq/VRQVKey/button/model/VRQSimpleJsonModel.h"
#include "vrq/VRQVKey/button/model/VRQVNormalButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVStickButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVTriggerButtonModel.h"
#include "vrq/platform/dispatch/MainLoop.h"

#include <gtest/gtest.h>

using nlohmann::json;

namespace {

class Inner : public VRQSimpleJsonModel {
public:
    std::optional<std::string> name;
    static const VRQModelClass& staticModelClass()
    {
        static const auto modelClass = VRQModelClass::of<Inner, VRQSimpleJsonModel>("Inner", {property("name", &Inner::name)});
        return modelClass;
    }
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
};

// Every kind of property; only "title" is required.
class Sample : public VRQSimpleJsonModel {
public:
    std::optional<std::string> title;
    std::optional<VRQJsonNumber> count;
    std::optional<std::string> nested;
    std::optional<VRQJsonDictionary> extra;
    std::shared_ptr<Inner> inner;
    std::optional<VRQModelArray> items;

    static const VRQModelClass& staticModelClass()
    {
        static const auto modelClass = VRQModelClass::of<Sample, VRQSimpleJsonModel>(
            "Sample", {property("title", &Sample::title), property("count", &Sample::count),
                       property("nested", &Sample::nested), property("extra", &Sample::extra),
                       property("inner", &Sample::inner), property("items", &Sample::items)});
        return modelClass;
    }
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    KeyMapper keyMapper() const override { return {{"nested", "a.b"}, {"items", "item_list"}}; }
    bool propertyIsOptional(const std::string& name) const override { return name != "title"; }
};

// Redeclares "count" as text, leaves "extra" out and adds a scalar.
class Derived : public Sample {
public:
    std::optional<std::string> countText;
    std::int32_t level = 0;

    static const VRQModelClass& staticModelClass()
    {
        static const auto modelClass = VRQModelClass::of<Derived, Sample>(
            "Derived", {property("count", &Derived::countText), property("level", &Derived::level)});
        return modelClass;
    }
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    bool propertyIsIgnored(const std::string& name) const override { return name == "extra"; }
};

// A model that holds a model of its own class.
class Node : public VRQSimpleJsonModel {
public:
    std::optional<std::string> name;
    std::shared_ptr<Node> child;
    static const VRQModelClass& staticModelClass()
    {
        static const auto modelClass = VRQModelClass::of<Node, VRQSimpleJsonModel>(
            "Node", {property("name", &Node::name), property("child", &Node::child)});
        return modelClass;
    }
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    bool propertyIsOptional(const std::string&) const override { return true; }
};

const json kFull = json::parse(R"({
    "title": "t", "count": 12, "a": {"b": "deep"}, "extra": {"k": 1}, "inner": {"name": "n"},
    "item_list": [{"key": "keyboard_F1", "top": "10"}, {"key": "keyboard_F13"}, {"key": ""}, {}, 5, "x"]
})");

TEST(VRQSimpleJsonModelTest, FillsEveryKindAndWritesBackWithoutSubKeys)
{
    vrqtest::LogCapture log;
    VRQError error;
    const auto model = VRQSimpleJsonModel::initWithDictionary<Sample>(kFull, &error);
    ASSERT_TRUE(model);
    EXPECT_EQ(model->title, "t");
    EXPECT_EQ(model->count->value, 12);
    EXPECT_EQ(model->nested, "deep");
    EXPECT_EQ(model->extra, (VRQJsonDictionary{{"k", 1}}));
    ASSERT_TRUE(model->inner);
    EXPECT_EQ(model->inner->name, "n");
    // Objects are built by their "key"; unknown, empty and missing keys are left out.
    ASSERT_EQ(model->items->size(), 3u);
    const auto* button = std::get_if<std::shared_ptr<VRQSimpleJsonModel>>(&(*model->items)[0]);
    ASSERT_TRUE(button);
    EXPECT_EQ(&(*button)->modelClass(), &VRQVNormalButtonModel::staticModelClass());
    EXPECT_EQ(std::get<json>((*model->items)[1]), 5);
    EXPECT_EQ(std::get<json>((*model->items)[2]), "x");
    EXPECT_TRUE(log.contains("item_list[4] is a number, not an object"));

    const json written = model->toDictionary();
    EXPECT_EQ(written, json::parse(R"({"title": "t", "count": 12, "extra": {"k": 1}, "inner": {"name": "n"},
                                       "item_list": [{"key": "keyboard_F1", "top": "10"}, 5, "x"]})"));
    EXPECT_TRUE(log.contains("sub-keys[a.b] is not support"));
    EXPECT_EQ(model->toJSONString(), written.dump());
    EXPECT_EQ(model->toDictionaryWithKeys(std::vector<std::string>{"title", "inner"}),
              json::parse(R"({"title": "t", "inner": {"name": "n"}})"));

    const auto copy = model->copy();
    ASSERT_TRUE(copy);
    EXPECT_NE(copy.get(), model.get());
    EXPECT_EQ(copy->toDictionary(), written);
}

TEST(VRQSimpleJsonModelTest, OnlyMissingOrUnmappableRequiredValuesFailTheFill)
{
    vrqtest::LogCapture log;
    const auto failure = [](const json& input) {
        VRQError error;
        EXPECT_FALSE(VRQSimpleJsonModel::initWithDictionary<Sample>(input, &error));
        EXPECT_EQ(error.domain, "jsonModel");
        EXPECT_EQ(error.code, -1);
        return error.userInfo.at("message");
    };
    EXPECT_EQ(failure(json::object()), "Value of required model key title is null");
    EXPECT_EQ(failure({{"title", nullptr}}), "Value of required model key title is null");
    // The message names the property, not the value's type.
    EXPECT_EQ(failure({{"title", json::binary({1, 2})}}), "Type title is not allowed in JSON.");

    // A value of the wrong kind leaves the property unset, the model is still built.
    const auto wrongKinds = VRQSimpleJsonModel::initWithDictionary<Sample>(
        {{"title", 5}, {"count", "12"}, {"inner", "n"}, {"item_list", "x"}}, nullptr);
    ASSERT_TRUE(wrongKinds);
    EXPECT_FALSE(wrongKinds->title);
    EXPECT_FALSE(wrongKinds->count);
    EXPECT_FALSE(wrongKinds->inner);
    EXPECT_FALSE(wrongKinds->items);
    EXPECT_TRUE(log.contains("Sample: title wants a string, not a number; left unset"));

    VRQError untouched{"untouched", 7, {}, {}};
    EXPECT_FALSE(VRQSimpleJsonModel::initWithDictionary<Sample>(json::array({kFull}), &untouched));
    EXPECT_EQ(untouched.domain, "untouched");
}

TEST(VRQSimpleJsonModelTest, ReadsTextPassingTheParserErrorOut)
{
    VRQError error;
    EXPECT_TRUE(VRQSimpleJsonModel::initWithString<Sample>(R"({"title": "t"})", &error));
    EXPECT_FALSE(VRQSimpleJsonModel::initWithString<Sample>("{\"title\": ", &error));
    EXPECT_EQ(error.domain, "JSONParser");
    VRQError untouched{"untouched", 7, {}, {}};
    EXPECT_FALSE(VRQSimpleJsonModel::initWithString<Sample>("[{\"title\": \"t\"}]", &untouched));
    EXPECT_EQ(untouched.domain, "untouched");
}

// Derived's table is built at its first use in the process: here, and only
// here (ctest runs each test in a process of its own).
TEST(VRQSimpleJsonModelTest, ATableIsBuiltOnceFromTheClassAndItsBases)
{
    vrqtest::LogCapture log;
    const auto& table = Derived::staticModelClass().properties();
    EXPECT_TRUE(log.contains("level is not supported yet"));
    std::vector<std::string> names;
    for (const auto& entry : table)
        names.push_back(entry.name);
    // The subclass's "count" comes first and wins; "extra" is ignored.
    EXPECT_EQ(names, (std::vector<std::string>{"count", "title", "nested", "inner", "items"}));
    EXPECT_EQ(table[0].type, VRQJsonType::String);
    EXPECT_EQ(table[2].jsonKey, "a.b");

    const std::size_t logged = log.lines().size();
    EXPECT_EQ(&Derived::staticModelClass().properties(), &table);
    EXPECT_EQ(log.lines().size(), logged);

    const auto model = VRQSimpleJsonModel::initWithDictionary<Derived>({{"title", "t"}, {"count", "7"}, {"extra", {{"k", 1}}}},
                                                                       nullptr);
    ASSERT_TRUE(model);
    EXPECT_EQ(model->countText, "7");
    EXPECT_FALSE(model->count);
    EXPECT_FALSE(model->extra);
}

TEST(VRQSimpleJsonModelTest, AModelMayHoldItsOwnClass)
{
    const json tree = json::parse(R"({"name": "a", "child": {"name": "b", "child": {"name": "c"}}})");
    const auto root = VRQSimpleJsonModel::initWithDictionary<Node>(tree, nullptr);
    ASSERT_TRUE(root && root->child && root->child->child);
    EXPECT_EQ(root->child->child->name, "c");
    EXPECT_EQ(root->toDictionary(), tree);
}

TEST(VRQSimpleJsonModelTest, ArraysOfModelsStopAtTheFirstFailure)
{
    VRQError error;
    const auto models = VRQSimpleJsonModel::arrayOfModelsFromDictionaries<Sample>(
        json::parse(R"([{"title": "a"}, 3, "x", {"title": "b"}])"), &error);
    ASSERT_TRUE(models);
    ASSERT_EQ(models->size(), 2u);
    EXPECT_EQ((*models)[1]->title, "b");

    EXPECT_FALSE(VRQSimpleJsonModel::arrayOfModelsFromDictionaries<Sample>(json::parse(R"([{"title": "a"}, {}])"), &error));
    EXPECT_EQ(error.userInfo.at("message"), "Value of required model key title is null");
    EXPECT_FALSE(VRQSimpleJsonModel::arrayOfModelsFromDictionaries<Sample>(nullptr, &error));
    EXPECT_THROW(VRQSimpleJsonModel::arrayOfModelsFromDictionaries<Sample>(json::parse("[[1]]"), &error),
                 vrq::VRQAssertionError);
}

TEST(VRQSimpleJsonModelTest, TextThatIsNotUtf8IsNotWritten)
{
    vrqtest::LogCapture log;
    Sample model;
    model.title = std::string("\xff\xfe");
    EXPECT_EQ(model.toJSONString(), "");
    EXPECT_TRUE(log.contains("EXCEPTION: "));
}

TEST(VRQSimpleJsonModelTest, ClickModeAndItsTextFollowEachOther)
{
    const auto mode = [](const json& clickMode) {
        const auto model = VRQSimpleJsonModel::initWithDictionary<VRQVNormalButtonModel>(
            {{"key", "gamepad_a"}, {"click_mode", clickMode}}, nullptr);
        return std::make_pair(model->clickMode(), model->clickModeStr());
    };
    EXPECT_EQ(mode("2"), std::make_pair(2, std::optional<std::string>("2")));
    EXPECT_EQ(mode(2), std::make_pair(0, std::optional<std::string>()));
    EXPECT_EQ(mode("abc"), std::make_pair(0, std::optional<std::string>("abc")));

    VRQVNormalButtonModel model;
    model.setClickMode(1);
    EXPECT_EQ(model.clickModeStr(), "1");
    // The mode itself is never written: only its text.
    EXPECT_EQ(model.toDictionary(), json::parse(R"({"click_mode": "1"})"));
}

TEST(VRQSimpleJsonModelTest, ButtonModelsTakeTheirKeysAndNeedNone)
{
    for (const VRQModelClass* type : {&VRQVNormalButtonModel::staticModelClass(), &VRQVStickButtonModel::staticModelClass(),
                                      &VRQVTriggerButtonModel::staticModelClass()})
        EXPECT_TRUE(type->initWithDictionary(json::object(), nullptr)) << type->name();

    const json trigger = json::parse(R"({"key": "trigger_rt_max", "left": "-200", "top": "80", "width": "140",
        "height": "140", "max_value": "255", "damper_step": "51", "click_mode": "0",
        "normal_view": {"icon_name": "rt", "bgcolor": "#00000080", "text_content": "RT", "text_color": "#FFFFFF",
                        "text_size": "36"},
        "pressed_view": {"icon_name": "rt_on"}})");
    const auto model = VRQSimpleJsonModel::initWithDictionary<VRQVTriggerButtonModel>(trigger, nullptr);
    ASSERT_TRUE(model);
    EXPECT_EQ(model->maxValue, "255");
    EXPECT_EQ(model->normalViewModel->bgColor, "#00000080");
    EXPECT_EQ(model->pressedViewModel->iconFileName, "rt_on");
    EXPECT_EQ(model->toDictionary(), trigger);

    const auto notAnObject = VRQSimpleJsonModel::initWithDictionary<VRQVNormalButtonModel>(
        {{"key", "gamepad_a"}, {"normal_view", "big"}}, nullptr);
    ASSERT_TRUE(notAnObject);
    EXPECT_FALSE(notAnObject->normalViewModel);
}

} // namespace
