#include "vrq/utils/VRQWeakDictionary.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct Handler {
    int id = 0;
};

TEST(VRQWeakDictionaryTest, StoresReplacesAndRemoves)
{
    auto first = std::make_unique<Handler>(Handler{1});
    Handler second{2};
    VRQWeakDictionary<Handler> handlers;
    EXPECT_EQ(handlers.vrq_weakObjectForKey("custom_trans_1"), nullptr);

    handlers.vrq_setWeakObject(first.get(), "custom_trans_1");
    handlers.vrq_setWeakObject(&second, "custom_trans_2");
    EXPECT_EQ(handlers.vrq_weakObjectForKey("custom_trans_1"), first.get());
    EXPECT_EQ(handlers.vrq_weakObjectForKey("custom_trans_2"), &second);

    handlers.vrq_setWeakObject(&second, "custom_trans_1");
    EXPECT_EQ(handlers.vrq_weakObjectForKey("custom_trans_1"), &second);
    EXPECT_EQ(handlers.size(), 2u);

    handlers.removeObjectForKey("custom_trans_1");
    handlers.removeObjectForKey("never_added");
    EXPECT_EQ(handlers.vrq_weakObjectForKey("custom_trans_1"), nullptr);
    EXPECT_EQ(handlers.size(), 1u);
}

} // namespace
