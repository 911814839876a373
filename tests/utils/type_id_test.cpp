#include <gtest/gtest.h>

#include "utils/utString.h"
#include "utils/utTypeID.h"

namespace {

class Animal {
    UT_TYPE_ROOT(Animal)
    virtual ~Animal() = default;
};
class Dog : public Animal {
    UT_TYPE(Dog, Animal)
};
class Puppy : public Dog {
    UT_TYPE(Puppy, Dog)
};
class Cat : public Animal {
    UT_TYPE(Cat, Animal)
};

TEST(TypeId, KindOfFollowsTheBaseChain) {
    Puppy p;
    const Animal* a = &p;
    EXPECT_TRUE(a->ut_is_kind_of(Puppy::ut_static_type()));
    EXPECT_TRUE(a->ut_is_kind_of(Dog::ut_static_type()));
    EXPECT_TRUE(a->ut_is_kind_of(Animal::ut_static_type()));
    EXPECT_FALSE(a->ut_is_kind_of(Cat::ut_static_type()));
    EXPECT_EQ(a->ut_dynamic_type(), Puppy::ut_static_type());
}

TEST(TypeId, DynamicCastAnswersNullForOtherKindsAndNull) {
    Dog d;
    Animal* a = &d;
    EXPECT_EQ(Dog::ut_dynamic_cast(a), &d);
    EXPECT_EQ(Puppy::ut_dynamic_cast(a), nullptr);
    EXPECT_EQ(Cat::ut_dynamic_cast(a), nullptr);
    EXPECT_EQ(Dog::ut_dynamic_cast(nullptr), nullptr);
    const Animal* ca = &d;
    const Dog* cd = Dog::ut_dynamic_cast(ca);
    EXPECT_EQ(cd, &d);
    EXPECT_EQ((ut_dynamic_cast<Dog>(static_cast<Animal*>(nullptr))), nullptr);
}

TEST(Strings, DowncaseTouchesOnlyAsciiLetters) {
    EXPECT_EQ(kapdowncase("ThicknessSetValues[16].Mode"), "thicknesssetvalues[16].mode");
    EXPECT_EQ(kapdowncase("\xC3\x89t\xC3\xA9"), "\xC3\x89t\xC3\xA9");
    EXPECT_TRUE(ut_iequal("BelowCentreline", "BelowCentreLine"));
    EXPECT_FALSE(ut_iequal("RootPar", "RootPars"));
}

}  // namespace
