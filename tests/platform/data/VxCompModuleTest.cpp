#include "platform/data/VxCompModule.h"
#include "platform/data/VxDynamicSeriesCtrl.h"
#include "platform/data/VxField3.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

namespace {

// A module shaped like the host's action modules: one data input accepting
// fields and an "Action:" row with a "DoIt" button.
class CountingModule : public VxCompModule
{
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

// Counts destructions so that ownership of time steps can be checked.
struct Tracked : VxData
{
    explicit Tracked(int *counter) : counter(counter) {}
    ~Tracked() override { ++*counter; }
    int *counter;
};

} // namespace

// A press of DoIt is seen by exactly one compute(), however often it was
// pressed before; the data port takes only the types it was given.
TEST(VxCompModule, ButtonHitIsSeenByExactlyOneComputeAndPortsCheckTypes)
{
    CountingModule m;
    VxData plain;
    EXPECT_FALSE(m.portData.connect(&plain));
    const int dims[3] = {1, 1, 1};
    VxRegColorField3 field(dims, VX_COORD_UNIFORM, 3, nullptr);
    ASSERT_TRUE(m.portData.connect(&field));
    EXPECT_EQ(m.portData.source<VxStackedScalarField3>(), nullptr);
    m.fire();
    EXPECT_EQ(m.actions, 0);
    EXPECT_EQ(m.result(0), nullptr);
    m.portAction.hit(0);
    m.fire();
    EXPECT_EQ(m.actions, 1);
    EXPECT_EQ(m.result(0), &field);
    EXPECT_FALSE(m.portAction.wasHit(0));
    m.fire();
    EXPECT_EQ(m.actions, 1);
    m.portAction.hit(0);
    m.portAction.hit(0);
    m.portAction.hit(5);
    m.fire();
    EXPECT_EQ(m.actions, 2);
    EXPECT_EQ(m.computes, 4);
}

// Time steps are owned by the control: an object in two steps is destroyed
// once, and a new init destroys what it is not handed again.
TEST(VxDynamicSeriesCtrl, OwnsItsStepsAndSelectsOne)
{
    int destroyed = 0;
    {
        VxDynamicSeriesCtrl ctrl;
        EXPECT_EQ(ctrl.currentData(), nullptr);
        auto *a = new Tracked(&destroyed);
        auto *b = new Tracked(&destroyed);
        auto *c = new Tracked(&destroyed);
        KcDArray<VxDynamicSeriesCtrl::TimeStep> steps;
        steps.append({a});
        steps.append({b, nullptr, c});
        steps.append({c});
        ctrl.init(steps);
        ASSERT_EQ(ctrl.nSteps(), 3);
        EXPECT_EQ(ctrl.currentData(), a);
        EXPECT_TRUE(ctrl.setCurrentStep(2));
        EXPECT_EQ(ctrl.currentData(), c);
        EXPECT_FALSE(ctrl.setCurrentStep(3));
        EXPECT_EQ(ctrl.currentStep(), 2);
        KcDArray<VxDynamicSeriesCtrl::TimeStep> again;
        again.append({b});
        ctrl.init(again);
        EXPECT_EQ(destroyed, 2);
        EXPECT_EQ(ctrl.currentData(), b);
    }
    EXPECT_EQ(destroyed, 3);
}
