#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"

namespace {

// Records destructions by name, in order.
struct Node {
  Node(std::string n, std::vector<std::string>* log) : name(std::move(n)), log(log) {}
  virtual ~Node() {
    if (log) log->push_back(name);
  }
  std::string name;
  std::vector<std::string>* log;
  Ref<Node> left;
  Ref<Node> right;
};

Ref<Node> MakeNode(char const* name, std::vector<std::string>* log) {
  Ref<Node> r;
  r.BindNewObject(new Node(name, log));
  return r;
}

TEST(Ref, CountsHandlesAndDeletesWithTheLast) {
  std::vector<std::string> log;
  Ref<Node> a = MakeNode("a", &log);
  ASSERT_TRUE(a);
  EXPECT_EQ(a.rep->refCount, 1);
  {
    Ref<Node> b(a);
    Ref<Node> c;
    c = b;
    EXPECT_EQ(a.rep->refCount, 3);
    EXPECT_TRUE(a == c);
    EXPECT_EQ(c->name, "a");
  }
  EXPECT_EQ(a.rep->refCount, 1);
  EXPECT_TRUE(log.empty());
  EXPECT_TRUE(a != MakeNode("a", nullptr)) << "equal objects, different records";
  a = 0;
  EXPECT_EQ(log, std::vector<std::string>{"a"});
  EXPECT_FALSE(a);
  EXPECT_EQ(a.rep, nullptr);
}

TEST(Ref, AssignmentSurvivesReleasingItsSource) {
  std::vector<std::string> log;
  Ref<Node> head = MakeNode("1", &log);
  head->left = MakeNode("2", &log);
  head->left->left = MakeNode("3", &log);
  // The only handle on "1" is replaced by a handle that "1" itself owns.
  head = head->left;
  EXPECT_EQ(log, std::vector<std::string>{"1"});
  EXPECT_EQ(head->name, "2");
  EXPECT_EQ(head.rep->refCount, 1);
  head = head;
  EXPECT_EQ(head.rep->refCount, 1);
  head = head->left;
  EXPECT_EQ(head->name, "3");
  head = 0;
  EXPECT_EQ(log, (std::vector<std::string>{"1", "2", "3"}));
}

// Releasing a node releases both its children through the destroy list.
TEST(Ref, EveryNodeOfATreeIsDestroyed) {
  std::vector<std::string> log;
  {
    Ref<Node> root = MakeNode("root", &log);
    root->left = MakeNode("L", &log);
    root->right = MakeNode("R", &log);
    root->left->left = MakeNode("LL", &log);
    root->right->left = MakeNode("RL", &log);
  }
  std::sort(log.begin(), log.end());
  EXPECT_EQ(log, (std::vector<std::string>{"L", "LL", "R", "RL", "root"}));
  EXPECT_EQ(RefRep<Node>::sDestroyList, nullptr);
}

struct StackProbe {
  uintptr_t top = 0;
  uintptr_t deepest = UINTPTR_MAX;
  int destroyed = 0;
  int outOfOrder = 0;
};
StackProbe* gProbe = nullptr;

struct ChainLink {
  explicit ChainLink(int i) : index(i) {}
  virtual ~ChainLink() {
    char here;
    uintptr_t address = (uintptr_t)&here;
    if (address < gProbe->deepest) gProbe->deepest = address;
    if (index != gProbe->destroyed) ++gProbe->outOfOrder;
    ++gProbe->destroyed;
  }
  int index;
  Ref<ChainLink> next;
};

constexpr int kChainLength = 100000;

void* BuildAndDropChain(void* arg) {
  StackProbe* probe = (StackProbe*)arg;
  char here;
  probe->top = (uintptr_t)&here;
  Ref<ChainLink> head;
  head.BindNewObject(new ChainLink(0));
  ChainLink* tail = head.Get();
  for (int i = 1; i < kChainLength; ++i) {
    tail->next.BindNewObject(new ChainLink(i));
    tail = tail->next.Get();
  }
  head = 0;
  return nullptr;
}

// Recursive release would take well over a megabyte for this chain; the
// destroy list keeps it to a few frames. The thread's stack is large so that
// a regression fails this check rather than crashing the test program.
TEST(Ref, LongChainDestroyedAtConstantDepth) {
  StackProbe probe;
  gProbe = &probe;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256u << 20);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attr, BuildAndDropChain, &probe), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  gProbe = nullptr;
  EXPECT_EQ(probe.destroyed, kChainLength);
  EXPECT_EQ(probe.outOfOrder, 0);
  EXPECT_LT(probe.top - probe.deepest, 16u * 1024u);
}

TEST(Ref, VectorOfHandlesKeepsCounts) {
  std::vector<std::string> log;
  Ref<Node> shared = MakeNode("shared", &log);
  {
    SimpleVector<Ref<Node>> v;
    for (int i = 0; i < 40; ++i) v.push_back(shared);
    EXPECT_EQ(shared.rep->refCount, 41);
    v.insert(shared, 3);
    v.deleteIdx(0);
    v.resize(10);
    // Ten in use plus the empty slots, which hold null handles.
    EXPECT_EQ(shared.rep->refCount, 11);
  }
  EXPECT_EQ(shared.rep->refCount, 1);
  EXPECT_TRUE(log.empty());
}

}  // namespace

namespace {

struct Shared {
  virtual ~Shared() { ++sDeleted; }
  static inline int sDeleted = 0;
};

TEST(RefCount, MoreThan65535HandlesOnOneRecord) {
  Shared::sDeleted = 0;
  {
    Ref<Shared> one;
    one.BindNewObject(new Shared);
    std::vector<Ref<Shared>> holders(70000, one);
    holders.clear();
    EXPECT_EQ(Shared::sDeleted, 0) << "the count wrapped and freed a value still held";
    EXPECT_TRUE(bool(one));
  }
  EXPECT_EQ(Shared::sDeleted, 1);
}

}  // namespace
