#include "platform/data/VxCompModule.h"
#include "platform/data/VxDynamicSeriesCtrl.h"
#include "platform/data/VxField3.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

namespace {

// A module shaped like the host's action modules: one data input accepting
// fields and an "Action:" row with a "DoIt" button.
class CountingModule : public VxCompModule
{
    VX_TYPE_HEADER(CountingModule)

public:
    CountingModule() : portAction(this, "doIt", "Action:", 1)
    {
        portData.addType<VxField3>();
        portAction.setLabel(0, "DoIt");
    }

    void compute() override
    {
        ++computes;
        if (!portAction.wasHit(0))
            return;
        ++actions;
        setResult(0, portData.source<VxField3>());
    }

    VxPortButtonList portAction;
    int computes = 0;
    int actions = 0;
};

VX_TYPE_INIT(CountingModule, VxCompModule)

// Counts destructions so that ownership of time steps can be checked.
struct Tracked : VxData
{
    explicit Tracked(int *counter) : counter(counter) {}
    ~Tracked() override { ++*counter; }
    int *counter;
};

} // namespace

TEST(VxCompModule, ButtonHitIsSeenByExactlyOneCompute)
{
    CountingModule m;
    const int dims[3] = {1, 1, 1};
    VxUniformScalarField3 field(dims, KcPrimType::UInt8, nullptr);
    ASSERT_TRUE(m.portData.connect(&field));

    EXPECT_FALSE(m.portAction.wasHit(0));
    m.fire();
    EXPECT_EQ(m.actions, 0);
    EXPECT_EQ(m.result(0), nullptr);

    m.portAction.hit(0);
    EXPECT_TRUE(m.portAction.wasHit(0));
    EXPECT_TRUE(m.portAction.isNew());
    m.fire();
    EXPECT_EQ(m.actions, 1);
    EXPECT_EQ(m.result(0), &field);
    EXPECT_FALSE(m.portAction.wasHit(0));
    EXPECT_FALSE(m.portAction.isNew());

    m.fire();
    EXPECT_EQ(m.actions, 1);
    EXPECT_EQ(m.computes, 3);

    // Pressing twice before computing is still one press for compute().
    m.portAction.hit(0);
    m.portAction.hit(0);
    m.portAction.hit(5);
    m.fire();
    EXPECT_EQ(m.actions, 2);
}

TEST(VxCompModule, ConnectionAcceptsOnlyItsTypes)
{
    CountingModule m;
    VxData plain;
    EXPECT_FALSE(m.portData.connect(&plain));
    EXPECT_EQ(m.portData.source(), nullptr);

    const int dims[3] = {1, 1, 1};
    VxRegColorField3 colour(dims, VX_COORD_UNIFORM, 3, nullptr);
    EXPECT_TRUE(m.portData.connect(&colour));
    EXPECT_EQ(m.portData.source<VxField3>(), &colour);
    EXPECT_EQ(m.portData.source<VxStackedScalarField3>(), nullptr);
    EXPECT_TRUE(m.portData.isNew());
    m.portData.disconnect();
    EXPECT_EQ(m.portData.source(), nullptr);

    // The base module takes any data object.
    VxCompModule base;
    EXPECT_TRUE(base.portData.connect(&plain));
}

TEST(VxCompModule, ResultsAreNumberedSlots)
{
    VxCompModule m;
    VxData a;
    VxData b;
    m.setResult(2, &b);
    m.setResult(0, &a);
    m.setResult(-1, &a);
    EXPECT_EQ(m.nResults(), 3);
    EXPECT_EQ(m.result(0), &a);
    EXPECT_EQ(m.result(1), nullptr);
    EXPECT_EQ(m.result(2), &b);
    EXPECT_EQ(m.result(3), nullptr);
    EXPECT_EQ(m.result(-1), nullptr);
}

TEST(VxTypeId, ModulesRegisterByClassNameAndCreateInstances)
{
    CountingModule::initClass();
    const VxTypeId t = VxTypeId::fromName("CountingModule");
    ASSERT_FALSE(t.isBad());
    EXPECT_EQ(t, CountingModule::getClassTypeId());
    EXPECT_STREQ(t.getName(), "CountingModule");
    EXPECT_EQ(t.getParent(), VxCompModule::getClassTypeId());
    EXPECT_TRUE(t.isDerivedFrom(VxCompModule::getClassTypeId()));
    EXPECT_FALSE(VxCompModule::getClassTypeId().isDerivedFrom(t));
    EXPECT_TRUE(t.canCreateInstance());

    std::unique_ptr<VxPoolObject> made(t.createInstance());
    auto *module = dynamic_cast<CountingModule *>(made.get());
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->getTypeId(), t);
    EXPECT_STREQ(module->typeName(), "CountingModule");
    EXPECT_TRUE(module->isOfType(VxCompModule::getClassTypeId()));

    std::unique_ptr<CountingModule> direct(CountingModule::createInstance());
    EXPECT_EQ(direct->portAction.buttonLabel(0), "DoIt");

    // Registering a name twice returns the first registration.
    EXPECT_EQ(VxTypeId::create("CountingModule", VxTypeId(), nullptr), t);
    EXPECT_TRUE(VxTypeId::fromName("NoSuchModule").isBad());
    EXPECT_TRUE(VxTypeId::create("", VxTypeId(), nullptr).isBad());
    EXPECT_EQ(VxTypeId().createInstance(), nullptr);
    EXPECT_STREQ(VxTypeId().getName(), "");
}

TEST(VxDynamicSeriesCtrl, OwnsItsStepsAndSelectsOne)
{
    int destroyed = 0;
    {
        VxDynamicSeriesCtrl ctrl;
        EXPECT_EQ(ctrl.nSteps(), 0);
        EXPECT_EQ(ctrl.currentStep(), -1);
        EXPECT_EQ(ctrl.currentData(), nullptr);

        auto *a = new Tracked(&destroyed);
        auto *b = new Tracked(&destroyed);
        auto *c = new Tracked(&destroyed);
        KcDArray<VxDynamicSeriesCtrl::TimeStep> steps;
        steps.append({a});
        steps.append({b, nullptr, c});
        steps.append({c}); // the same object in two steps is destroyed once
        ctrl.init(steps);

        ASSERT_EQ(ctrl.nSteps(), 3);
        EXPECT_EQ(ctrl.step(1).size(), 2);
        EXPECT_EQ(ctrl.step(1)[1], c);
        EXPECT_EQ(ctrl.step(3).size(), 0);
        EXPECT_EQ(ctrl.currentStep(), 0);
        EXPECT_EQ(ctrl.currentData(), a);
        EXPECT_TRUE(ctrl.setCurrentStep(2));
        EXPECT_EQ(ctrl.currentData(), c);
        EXPECT_FALSE(ctrl.setCurrentStep(3));
        EXPECT_EQ(ctrl.currentStep(), 2);

        // A new init destroys the old objects that are not handed over again.
        KcDArray<VxDynamicSeriesCtrl::TimeStep> again;
        again.append({b});
        ctrl.init(again);
        EXPECT_EQ(destroyed, 2);
        EXPECT_EQ(ctrl.nSteps(), 1);
        EXPECT_EQ(ctrl.currentData(), b);
    }
    EXPECT_EQ(destroyed, 3);
}

