#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "platform/AutoPointer.h"

namespace {

struct Counted {
    explicit Counted(int* destroyed) : destroyed(destroyed) {}
    ~Counted() { ++*destroyed; }
    int* destroyed;
    int value = 5;
};

struct Element {
    static inline int destroyed = 0;
    ~Element() { ++destroyed; }
};

// Counts references the way an interface of the runtime does.
struct FakeInterface {
    int references = 1;
    unsigned long AddRef() { return ++references; }
    unsigned long Release() { return --references; }
};

}  // namespace

TEST(AutoPointer, OwnsOneObjectAndFreesItOnNullOrDestruction) {
    int destroyed = 0;
    {
        AutoPointer<Counted> pointer(new Counted(&destroyed));
        EXPECT_EQ(pointer->value, 5);
        EXPECT_EQ((*pointer).value, 5);
        pointer = nullptr;
        EXPECT_EQ(destroyed, 1);
        EXPECT_EQ(pointer.get(), nullptr);
        pointer = new Counted(&destroyed);
        pointer = new Counted(&destroyed);
        EXPECT_EQ(destroyed, 2);
        AutoPointer<Counted> moved(std::move(pointer));
        EXPECT_EQ(pointer.get(), nullptr);
        EXPECT_EQ(destroyed, 2);
    }
    EXPECT_EQ(destroyed, 3);

    AutoPointer<Counted> kept(new Counted(&destroyed));
    Counted* raw = kept.detach();
    EXPECT_EQ(kept.get(), nullptr);
    delete raw;
    EXPECT_EQ(destroyed, 4);
}

TEST(AutoPointer, ArrayAndMallocOwnersFreeTheirKind) {
    Element::destroyed = 0;
    {
        AutoArrayPointer<Element> elements(new Element[3]);
        elements = nullptr;
        EXPECT_EQ(Element::destroyed, 3);
        elements = new Element[2];
    }
    EXPECT_EQ(Element::destroyed, 5);

    AutoMallocPointer<char> block(static_cast<char*>(std::malloc(8)));
    std::strcpy(block, "abc");
    EXPECT_STREQ(block.get(), "abc");
    block = static_cast<char*>(std::malloc(4));
    block = nullptr;
    EXPECT_EQ(block.get(), nullptr);
}

TEST(AutoPointer, COMPointerHoldsExactlyOneReference) {
    FakeInterface object;
    {
        AutoCOMPointer<FakeInterface> adopted(&object);
        EXPECT_EQ(object.references, 1);
        {
            AutoCOMPointer<FakeInterface> copy(adopted);
            EXPECT_EQ(object.references, 2);
            AutoCOMPointer<FakeInterface> assigned;
            assigned = copy;
            EXPECT_EQ(object.references, 3);
            assigned = nullptr;
            EXPECT_EQ(object.references, 2);
        }
        EXPECT_EQ(object.references, 1);
        AutoCOMPointer<FakeInterface> moved(std::move(adopted));
        EXPECT_EQ(object.references, 1);
        EXPECT_EQ(adopted.get(), nullptr);
        EXPECT_EQ(moved->references, 1);
        AutoCOMPointer<FakeInterface> moveAssigned;
        moveAssigned = std::move(moved);
        EXPECT_EQ(object.references, 1);
        EXPECT_EQ(moved.get(), nullptr);
        EXPECT_EQ(moveAssigned.get(), &object);
    }
    EXPECT_EQ(object.references, 0);

    // The out-parameter slot releases what was held before it is filled.
    FakeInterface first;
    FakeInterface second;
    AutoCOMPointer<FakeInterface> slot(&first);
    FakeInterface** out = &slot;
    EXPECT_EQ(first.references, 0);
    *out = &second;
    EXPECT_EQ(slot.get(), &second);
    EXPECT_EQ(slot.detach(), &second);
    EXPECT_EQ(second.references, 1);
}
