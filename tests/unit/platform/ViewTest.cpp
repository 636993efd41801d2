// Views: geometry under transforms, conversions between nested views,
// hit-testing, the tree's links, the drawing marks, and how image views
// place their image.
#include "vrq/platform/views/ImageView.h"
#include "vrq/platform/views/Label.h"
#include "vrq/platform/views/View.h"
#include "vrq/platform/views/Window.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

using vrq::AffineTransform;
using vrq::Point;
using vrq::Rect;
using vrq::View;

std::shared_ptr<View> makeView(Rect frame)
{
    return std::make_shared<View>(frame);
}

void expectNear(Point actual, Point expected, const std::string& what)
{
    EXPECT_NEAR(actual.x, expected.x, 1e-9) << what;
    EXPECT_NEAR(actual.y, expected.y, 1e-9) << what;
}

TEST(ViewTest, TheFrameIsTheTransformedBoundsAboutTheCentre)
{
    auto view = makeView({{10, 20}, {100, 50}});
    EXPECT_EQ(view->center(), (Point{60, 45}));
    EXPECT_EQ(view->bounds(), (Rect{{0, 0}, {100, 50}}));

    view->setTransform(AffineTransform::makeScale(2, 2));
    EXPECT_EQ(view->frame(), (Rect{{-40, -5}, {200, 100}})) << "twice as big about the same centre";
    EXPECT_EQ(view->center(), (Point{60, 45}));
    EXPECT_EQ(view->bounds(), (Rect{{0, 0}, {100, 50}})) << "the bounds do not follow the transform";

    view->setTransform(AffineTransform::makeTranslation(5, -5));
    EXPECT_EQ(view->frame(), (Rect{{15, 15}, {100, 50}}));

    view->setTransform({0, 1, -1, 0, 0, 0}); // a quarter turn
    EXPECT_EQ(view->frame(), (Rect{{35, -5}, {50, 100}}));

    view->setTransform(AffineTransform::identity());
    view->setFrame({{0, 0}, {30, 40}});
    EXPECT_EQ(view->center(), (Point{15, 20}));
    EXPECT_EQ(view->frame(), (Rect{{0, 0}, {30, 40}}));
}

TEST(ViewTest, SettingTheFrameKeepsTheBoundsOrigin)
{
    auto view = makeView({{0, 0}, {100, 100}});
    view->setBounds({{20, 10}, {100, 100}});
    EXPECT_EQ(view->frame(), (Rect{{0, 0}, {100, 100}})) << "the bounds origin scrolls the content, not the view";
    view->setFrame({{50, 50}, {40, 30}});
    EXPECT_EQ(view->bounds(), (Rect{{20, 10}, {40, 30}}));
    EXPECT_EQ(view->frame(), (Rect{{50, 50}, {40, 30}}));
}

// A root with a view scaled twice (a) holding a view moved by a translation
// (b), and a sibling of a whose bounds origin is scrolled (c).
class ConversionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_root->addSubview(m_a);
        m_a->addSubview(m_b);
        m_root->addSubview(m_c);
        m_a->setTransform(AffineTransform::makeScale(2, 2));
        m_b->setTransform(AffineTransform::makeTranslation(5, -5));
        m_c->setBounds({{20, 10}, {100, 100}});
    }

    View* named(const std::string& name) const
    {
        if (name == "a")
            return m_a.get();
        if (name == "b")
            return m_b.get();
        return name == "c" ? m_c.get() : m_root.get();
    }

    std::shared_ptr<View> m_root = makeView({{0, 0}, {400, 300}});
    std::shared_ptr<View> m_a = makeView({{50, 40}, {200, 100}});
    std::shared_ptr<View> m_b = makeView({{10, 10}, {50, 50}});
    std::shared_ptr<View> m_c = makeView({{300, 0}, {100, 100}});
};

struct ConversionCase {
    const char* view;
    Point local;
    Point inRoot;
};

class ConversionToRootTest : public ConversionTest, public ::testing::WithParamInterface<ConversionCase> {};

TEST_P(ConversionToRootTest, GoesThroughEveryTransformAndBack)
{
    const ConversionCase& c = GetParam();
    const View* view = named(c.view);
    expectNear(view->convertPointToView(c.local, nullptr), c.inRoot, "to the root");
    expectNear(view->convertPointToView(c.local, m_root.get()), c.inRoot, "to the root view itself");
    expectNear(view->convertPointFromView(c.inRoot, nullptr), c.local, "from the root");
    expectNear(m_root->convertPointFromView(c.local, view), c.inRoot, "the root from the view");
}

INSTANTIATE_TEST_SUITE_P(
    NestedViews, ConversionToRootTest,
    ::testing::Values(ConversionCase{"a", {100, 50}, {150, 90}},  // a's centre stays
                      ConversionCase{"a", {0, 0}, {-50, -10}},    // its corner moves out twice as far
                      ConversionCase{"b", {0, 0}, {-20, 0}},      // b's corner: (15, 5) in a
                      ConversionCase{"b", {25, 25}, {30, 50}},    // b's centre: (40, 30) in a
                      ConversionCase{"b", {50, 50}, {80, 100}},   // b's far corner: (65, 55) in a
                      ConversionCase{"c", {20, 10}, {300, 0}},    // c's visible corner
                      ConversionCase{"c", {70, 60}, {350, 50}},   // c's middle
                      ConversionCase{"root", {7, 9}, {7, 9}}));

TEST_F(ConversionTest, ConvertsBetweenViewsOfDifferentBranches)
{
    // b's centre is (30, 50) in the root, so (30 - 350 + 70, 50 - 50 + 60) in c.
    expectNear(m_b->convertPointToView({25, 25}, m_c.get()), {-250, 60}, "b to c");
    expectNear(m_c->convertPointFromView({25, 25}, m_b.get()), {-250, 60}, "c from b");
    expectNear(m_c->convertPointToView({-250, 60}, m_b.get()), {25, 25}, "back to b");
    for (const Point p : {Point{0, 0}, Point{3.5, -8}, Point{123, 45}}) {
        expectNear(m_b->convertPointFromView(m_b->convertPointToView(p, m_c.get()), m_c.get()), p, "round trip b-c");
        expectNear(m_a->convertPointFromView(m_a->convertPointToView(p, m_b.get()), m_b.get()), p, "round trip a-b");
    }
}

TEST_F(ConversionTest, HitTestingFollowsTheTransforms)
{
    auto inner = makeView({{10, 10}, {10, 10}});
    m_b->addSubview(inner);
    // a covers (-50, -10) to (350, 190) in the root; b covers (-20, 0) to (80, 100).
    EXPECT_EQ(m_root->hitTest({5, 25}), inner.get()) << "inner is (0, 20) to (20, 40) in the root";
    EXPECT_EQ(m_root->hitTest({21, 25}), m_b.get());
    EXPECT_EQ(m_root->hitTest({30, 50}), m_b.get());
    EXPECT_EQ(m_root->hitTest({200, 150}), m_a.get()) << "outside a's untransformed frame, inside its scaled one";
    EXPECT_EQ(m_root->hitTest({399, 299}), m_root.get());
    EXPECT_EQ(m_root->hitTest({400, 10}), nullptr) << "the right edge is outside";
}

// A view covering a base view, with a subview of its own: what is hit at
// the point they share.
struct SkipCase {
    const char* name;
    void (*change)(View& cover);
    bool coverIsHit;
};

class HitTestSkipTest : public ::testing::TestWithParam<SkipCase> {};

TEST_P(HitTestSkipTest, SkipsTheViewWithItsSubviews)
{
    auto root = makeView({{0, 0}, {100, 100}});
    auto base = makeView({{0, 0}, {100, 100}});
    auto cover = makeView({{0, 0}, {100, 100}});
    auto coverChild = makeView({{40, 40}, {20, 20}});
    root->addSubview(base);
    root->addSubview(cover);
    cover->addSubview(coverChild);
    GetParam().change(*cover);
    EXPECT_EQ(root->hitTest({50, 50}), GetParam().coverIsHit ? coverChild.get() : base.get());
    EXPECT_EQ(root->hitTest({10, 10}), GetParam().coverIsHit ? cover.get() : base.get());
}

INSTANTIATE_TEST_SUITE_P(
    Views, HitTestSkipTest,
    ::testing::Values(SkipCase{"Hidden", [](View& v) { v.setHidden(true); }, false},
                      SkipCase{"NotInteractive", [](View& v) { v.setUserInteractionEnabled(false); }, false},
                      SkipCase{"Transparent", [](View& v) { v.setAlpha(0); }, false},
                      SkipCase{"AlmostTransparent", [](View& v) { v.setAlpha(0.009); }, false},
                      SkipCase{"FaintButThere", [](View& v) { v.setAlpha(0.01); }, true},
                      SkipCase{"Shown", [](View&) {}, true}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ViewTest, TheLastSubviewWinsWhereSubviewsOverlap)
{
    auto root = makeView({{0, 0}, {100, 100}});
    auto first = makeView({{0, 0}, {60, 60}});
    auto second = makeView({{40, 40}, {60, 60}});
    root->addSubview(first);
    root->addSubview(second);
    EXPECT_EQ(root->hitTest({50, 50}), second.get());

    root->addSubview(first); // added again: moved to the top, not held twice
    ASSERT_EQ(root->subviews().size(), 2u);
    EXPECT_EQ(root->hitTest({50, 50}), first.get());

    auto under = makeView({{0, 0}, {100, 100}});
    root->insertSubview(under, 0);
    auto over = makeView({{45, 45}, {10, 10}});
    root->insertSubview(over, 99); // past the end: on top
    EXPECT_EQ(root->subviews().front(), under);
    EXPECT_EQ(root->subviews().back(), over);
    EXPECT_EQ(root->hitTest({50, 50}), over.get());
    EXPECT_EQ(root->hitTest({90, 5}), under.get());
}

TEST(ViewTest, TheTreeKeepsItsLinksAsViewsMoveAndGo)
{
    auto window = std::make_shared<vrq::Window>(Rect{{0, 0}, {100, 100}});
    auto parent = makeView({{0, 0}, {50, 50}});
    auto child = makeView({{0, 0}, {10, 10}});
    window->addSubview(parent);
    parent->addSubview(child);
    EXPECT_EQ(child->window(), window.get());
    EXPECT_EQ(window->window(), window.get());
    EXPECT_TRUE(child->isDescendantOf(child.get()));
    EXPECT_TRUE(child->isDescendantOf(window.get()));
    EXPECT_FALSE(parent->isDescendantOf(child.get()));

    child->addSubview(parent); // a view cannot go into its own subtree
    EXPECT_EQ(parent->superview(), window.get());
    EXPECT_TRUE(child->subviews().empty());

    window->addSubview(child); // moves, out of its old superview
    EXPECT_TRUE(parent->subviews().empty());
    EXPECT_EQ(child->superview(), window.get());

    auto grandchild = makeView({{0, 0}, {5, 5}});
    parent->addSubview(grandchild);
    parent->removeFromSuperview();
    EXPECT_EQ(grandchild->window(), nullptr);
    parent.reset(); // its subviews lose their superview with it
    EXPECT_EQ(grandchild->superview(), nullptr);
}

// A root, a middle view and two leaves under it, all drawn once.
class NeedsDisplayTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_root->addSubview(m_middle);
        m_middle->addSubview(m_leaf);
        m_middle->addSubview(m_sibling);
        m_root->clearNeedsDisplay();
    }

    bool anyMark() const
    {
        for (const View* v : {m_root.get(), m_middle.get(), m_leaf.get(), m_sibling.get()}) {
            if (v->needsDisplay() || v->subtreeNeedsDisplay())
                return true;
        }
        return false;
    }

    std::shared_ptr<View> m_root = makeView({{0, 0}, {100, 100}});
    std::shared_ptr<View> m_middle = makeView({{0, 0}, {50, 50}});
    std::shared_ptr<View> m_leaf = makeView({{0, 0}, {10, 10}});
    std::shared_ptr<View> m_sibling = makeView({{20, 0}, {10, 10}});
};

TEST_F(NeedsDisplayTest, AChangeMarksTheViewAndItsAncestorsAndDrawingClearsTheSubtree)
{
    EXPECT_FALSE(anyMark());
    m_leaf->setAlpha(0.5);
    EXPECT_TRUE(m_leaf->needsDisplay());
    EXPECT_TRUE(m_leaf->subtreeNeedsDisplay());
    EXPECT_FALSE(m_middle->needsDisplay());
    EXPECT_TRUE(m_middle->subtreeNeedsDisplay());
    EXPECT_TRUE(m_root->subtreeNeedsDisplay());
    EXPECT_FALSE(m_sibling->needsDisplay() || m_sibling->subtreeNeedsDisplay());

    m_middle->clearNeedsDisplay(); // a renderer drew the middle's subtree only
    EXPECT_FALSE(m_leaf->needsDisplay());
    EXPECT_FALSE(m_middle->subtreeNeedsDisplay());
    EXPECT_TRUE(m_root->subtreeNeedsDisplay());
    m_root->clearNeedsDisplay();
    EXPECT_FALSE(anyMark());

    m_leaf->setAlpha(0.5);
    m_leaf->setHidden(false);
    m_leaf->setFrame(m_leaf->frame());
    EXPECT_FALSE(anyMark()) << "setting what is already there changes nothing";
}

struct MarkCase {
    const char* name;
    void (*change)(View& leaf);
};

class NeedsDisplayChangeTest : public NeedsDisplayTest, public ::testing::WithParamInterface<MarkCase> {};

TEST_P(NeedsDisplayChangeTest, MarksTheLeafAndTheRootSubtree)
{
    GetParam().change(*m_leaf);
    EXPECT_TRUE(m_leaf->needsDisplay());
    EXPECT_TRUE(m_root->subtreeNeedsDisplay());
}

INSTANTIATE_TEST_SUITE_P(
    Changes, NeedsDisplayChangeTest,
    ::testing::Values(MarkCase{"Frame", [](View& v) { v.setFrame({{1, 2}, {3, 4}}); }},
                      MarkCase{"Width", [](View& v) { v.vrq_setW(11); }},
                      MarkCase{"Bounds", [](View& v) { v.setBounds({{5, 0}, {10, 10}}); }},
                      MarkCase{"Center", [](View& v) { v.setCenter({40, 40}); }},
                      MarkCase{"Transform", [](View& v) { v.setTransform(AffineTransform::makeScale(2, 2)); }},
                      MarkCase{"Hidden", [](View& v) { v.setHidden(true); }},
                      MarkCase{"Alpha", [](View& v) { v.setAlpha(0.25); }},
                      MarkCase{"Background", [](View& v) { v.setBackgroundColor({1, 0, 0, 1}); }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(NeedsDisplayTest, AddingAndRemovingSubviewsMarksWhereTheyAre)
{
    auto added = makeView({{0, 0}, {5, 5}});
    added->clearNeedsDisplay();
    m_leaf->addSubview(added);
    EXPECT_TRUE(added->needsDisplay());
    EXPECT_TRUE(m_leaf->subtreeNeedsDisplay());
    EXPECT_TRUE(m_root->subtreeNeedsDisplay());
    EXPECT_FALSE(m_sibling->subtreeNeedsDisplay());

    m_root->clearNeedsDisplay();
    m_sibling->removeFromSuperview();
    EXPECT_TRUE(m_middle->needsDisplay()) << "what the removed view covered shows again";
    EXPECT_TRUE(m_root->subtreeNeedsDisplay());
}

// A view that lays itself out again whenever its frame changes.
class SizedView : public View {
public:
    using View::View;
    void setFrame(Rect frame) override
    {
        View::setFrame(frame);
        seen.push_back(this->frame());
    }
    std::vector<Rect> seen;
};

TEST(ViewTest, TheFrameHelpersGoThroughTheOverriddenSetFrame)
{
    auto view = std::make_shared<SizedView>(Rect{{10, 20}, {100, 50}});
    view->vrq_setW(80);
    ASSERT_EQ(view->seen.size(), 1u);
    EXPECT_EQ(view->seen.back(), (Rect{{10, 20}, {80, 50}})) << "the override sees the new frame";
    view->vrq_setH(40);
    view->vrq_setX(0);
    view->vrq_setY(0);
    view->vrq_setCenter({100, 100});
    ASSERT_EQ(view->seen.size(), 5u);
    EXPECT_EQ(view->seen.back(), (Rect{{60, 80}, {80, 40}}));
}

TEST(ViewTest, LayoutRunsOnceForMarkedViews)
{
    struct CountingView : View {
        using View::View;
        void layoutSubviews() override { ++layouts; }
        int layouts = 0;
    };
    auto parent = std::make_shared<CountingView>(Rect{{0, 0}, {100, 100}});
    auto child = std::make_shared<CountingView>(Rect{{0, 0}, {10, 10}});
    parent->addSubview(child);
    parent->layoutIfNeeded();
    EXPECT_EQ(parent->layouts, 1) << "adding a subview lays the superview out";
    EXPECT_EQ(child->layouts, 0);
    child->setNeedsLayout();
    parent->layoutIfNeeded();
    parent->layoutIfNeeded();
    EXPECT_EQ(parent->layouts, 1);
    EXPECT_EQ(child->layouts, 1);
    child->setCenter({50, 50});
    parent->layoutIfNeeded();
    EXPECT_EQ(child->layouts, 1) << "moving does not change the size";
    child->vrq_setW(20);
    parent->layoutIfNeeded();
    EXPECT_EQ(child->layouts, 2);
}

TEST(ViewTest, LabelsAndImageViewsTakeNoTouchesAndMarkOnlyRealChanges)
{
    auto root = makeView({{0, 0}, {100, 100}});
    auto label = std::make_shared<vrq::Label>(Rect{{0, 0}, {100, 100}});
    auto image = std::make_shared<vrq::ImageView>(Rect{{0, 0}, {100, 100}});
    root->addSubview(label);
    root->addSubview(image);
    EXPECT_EQ(root->hitTest({50, 50}), root.get());

    label->setText("ping");
    root->clearNeedsDisplay();
    label->setText("ping");
    label->setTextAlignment(vrq::TextAlignment::Left);
    image->setContentMode(vrq::ContentMode::ScaleToFill);
    EXPECT_FALSE(root->subtreeNeedsDisplay());
    label->setTextAlignment(vrq::TextAlignment::Right);
    EXPECT_TRUE(label->needsDisplay());
    image->setHighlighted(true);
    EXPECT_TRUE(image->needsDisplay());
}

// Where a 200 x 100 image goes in a 100 x 100 image view.
struct ImageRectCase {
    const char* name;
    vrq::ContentMode mode;
    Rect expected;
};

class ImageRectTest : public ::testing::TestWithParam<ImageRectCase> {};

TEST_P(ImageRectTest, PlacesTheImageByItsContentMode)
{
    vrq::ImageView view(Rect{{30, 30}, {100, 100}});
    view.setContentMode(GetParam().mode);
    EXPECT_EQ(view.imageRect(), Rect{}) << "no image, nowhere";
    view.setImage(std::make_shared<const vrq::Image>(200, 100, std::vector<std::uint8_t>(200 * 100 * 4)));
    EXPECT_EQ(view.imageRect(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, ImageRectTest,
    ::testing::Values(ImageRectCase{"ScaleToFill", vrq::ContentMode::ScaleToFill, {{0, 0}, {100, 100}}},
                      ImageRectCase{"AspectFit", vrq::ContentMode::ScaleAspectFit, {{0, 25}, {100, 50}}},
                      ImageRectCase{"AspectFill", vrq::ContentMode::ScaleAspectFill, {{-50, 0}, {200, 100}}},
                      ImageRectCase{"Center", vrq::ContentMode::Center, {{-50, 0}, {200, 100}}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ViewTest, AHighlightedImageViewShowsItsHighlightedImageWhenItHasOne)
{
    vrq::ImageView view(Rect{{0, 0}, {10, 10}});
    auto normal = std::make_shared<const vrq::Image>(20, 10, std::vector<std::uint8_t>(20 * 10 * 4));
    auto lit = std::make_shared<const vrq::Image>(10, 20, std::vector<std::uint8_t>(10 * 20 * 4));
    view.setImage(normal);
    view.setHighlighted(true);
    EXPECT_EQ(view.displayedImage(), normal);
    view.setHighlightedImage(lit);
    EXPECT_EQ(view.displayedImage(), lit);
    view.setContentMode(vrq::ContentMode::Center);
    EXPECT_EQ(view.imageRect(), (Rect{{0, -5}, {10, 20}})) << "placed by the image shown";
    view.setHighlighted(false);
    EXPECT_EQ(view.displayedImage(), normal);
}

} // namespace
