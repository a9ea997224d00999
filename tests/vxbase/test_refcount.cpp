// object_refcount and ptr_refcount: sharing, release, casts.
#include <gtest/gtest.h>

#include <vxbase/ptr_refcount.h>

namespace {

struct counted : vxbase::object_refcount {
  explicit counted(int* deaths) : deaths_(deaths) {}
  ~counted() override { ++*deaths_; }
  int* deaths_;
};

struct derived : counted {
  using counted::counted;
};

TEST(refcount, last_release_deletes) {
  int deaths = 0;
  {
    vxbase::ptr_refcount<counted> a(new counted(&deaths));
    EXPECT_EQ(a->use_count(), 1u);
    {
      vxbase::ptr_refcount<counted> b = a;
      EXPECT_EQ(a->use_count(), 2u);
      EXPECT_TRUE(a == b);
    }
    EXPECT_EQ(a->use_count(), 1u);
    EXPECT_EQ(deaths, 0);
  }
  EXPECT_EQ(deaths, 1);
}

TEST(refcount, move_transfers_without_counting) {
  int deaths = 0;
  vxbase::ptr_refcount<counted> a(new counted(&deaths));
  vxbase::ptr_refcount<counted> b(std::move(a));
  EXPECT_FALSE(a);
  EXPECT_EQ(b->use_count(), 1u);
  b = nullptr;
  EXPECT_EQ(deaths, 1);
}

TEST(refcount, self_assignment_keeps_object) {
  int deaths = 0;
  vxbase::ptr_refcount<counted> a(new counted(&deaths));
  auto& alias = a;
  a = alias;
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(a->use_count(), 1u);
}

TEST(refcount, const_pointer_owns_and_casts) {
  int deaths = 0;
  vxbase::ptr_refcount<const counted> base(new derived(&deaths));
  auto d = vxbase::dynamic_refcount_cast<const derived>(base);
  ASSERT_TRUE(d);
  EXPECT_EQ(base->use_count(), 2u);
  base.reset();
  d.reset();
  EXPECT_EQ(deaths, 1);
}

TEST(refcount, copy_of_object_has_its_own_count) {
  int deaths = 0;
  vxbase::ptr_refcount<counted> a(new counted(&deaths));
  vxbase::ptr_refcount<counted> b(new counted(*a));
  EXPECT_EQ(a->use_count(), 1u);
  EXPECT_EQ(b->use_count(), 1u);
}

}  // namespace
