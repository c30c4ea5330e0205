#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "Orb/Dir.h"
#include "tests/Orb/Source.h"

namespace {

using Orb::Ptr;

// Appends its letter when it is called, then does what it was told to do once. Does not keep its source alive.
class Watcher : public Orb::PtrInterface::NotifieeConst {
 public:
  Watcher(char letter, Source const* source, std::string& log) : letter_(letter), source_(source), log_(log) {
    hasNotificationActiveIs(true);
  }
  void onAttribute(Orb::AttributeId, void const*) override {
    log_ += letter_;
    if (auto const action = std::exchange(once, {})) action();
  }
  void onZeroReferences() override { log_ += '0', log_ += letter_; }
  Ptr<PtrInterface const> notifier() const override { return source_; }
  void notifierIs(Ptr<PtrInterface const> const&) override {}

  std::function<void()> once;

 private:
  char letter_;
  Source const* source_;
  std::string& log_;
};

struct Stage {
  Ptr<Source> source = Orb::makePtr<Source>();
  std::string log;
  std::map<char, Ptr<Watcher>> watchers;

  Watcher& make(char letter) {
    return *(watchers[letter] = Orb::makePtr<Watcher>(letter, source.get(), log));
  }
  void add(char letter) { make(letter).isRegisteredNotifieeIs(true); }
  void addFirst(char letter) { source->notifieeList()->addFirst(make(letter)); }
  void remove(char letter) { watchers[letter]->isRegisteredNotifieeIs(false); }
  void again(char letter) { watchers[letter]->isRegisteredNotifieeIs(true); }
  void destroy(char letter) { watchers.erase(letter); }
  void drop() { source = nullptr; }
  std::string announced() {
    if (source) source->level();
    return std::exchange(log, {});
  }
};

TEST(Notification, Disturbed) {
  struct {
    char const* title;
    std::function<void(Stage&)> disturbance;  // of b, the second of three
    char const* first;                        // who is called in the disturbed delivery
    char const* second;                       // and in the next one
  } const cases[] = {
      {"not at all", [](Stage&) {}, "abc", "abc"},
      {"removes itself", [](Stage& s) { s.remove('b'); }, "abc", "ac"},
      {"destroys itself", [](Stage& s) { s.destroy('b'); }, "abc", "ac"},
      {"removes one before", [](Stage& s) { s.remove('a'); }, "abc", "bc"},
      {"removes one behind", [](Stage& s) { s.remove('c'); }, "ab", "ab"},
      {"destroys the others", [](Stage& s) { s.destroy('c'), s.destroy('a'); }, "ab", "b"},
      {"re-adds itself", [](Stage& s) { s.remove('b'), s.again('b'); }, "abc", "acb"},
      {"re-adds one behind", [](Stage& s) { s.remove('c'), s.again('c'); }, "ab", "abc"},
      {"registers again as it is", [](Stage& s) { s.again('a'), s.again('c'); }, "abc", "abc"},
      {"adds others", [](Stage& s) { s.add('d'), s.addFirst('e'); }, "abc", "eabcd"},
      {"adds and destroys", [](Stage& s) { s.addFirst('d'), s.destroy('a'), s.add('e'); }, "abc", "dbce"},
      {"switches one off", [](Stage& s) { s.watchers['c']->hasNotificationActiveIs(false); }, "ab", "ab"},
      {"marks one", [](Stage& s) { s.watchers['c']->orbDoZombieReactors(true); }, "ab", "ab"},
      {"announces", [](Stage& s) { s.source->level(); }, "ababcc", "abc"},
      {"announces, which removes a",
       [](Stage& s) { s.watchers['c']->once = [&s] { s.remove('a'); }, s.source->level(); }, "ababcc", "bc"},
      {"announces, which adds d",
       [](Stage& s) { s.watchers['a']->once = [&s] { s.add('d'); }, s.source->level(); }, "ababcc", "abcd"},
      {"announces, which destroys c",
       [](Stage& s) { s.watchers['a']->once = [&s] { s.destroy('c'); }, s.source->level(); }, "abab", "ab"},
      {"drops the source", [](Stage& s) { s.drop(); }, "ab0a0b0c", ""},
      {"announces, which drops the source",
       [](Stage& s) {
         s.watchers['a']->once = [&s] { s.drop(); };
         Ptr<Source>(s.source)->level();
       },
       "ababc0a0b0c", ""},
      {"announces uncounted, which drops the source",
       [](Stage& s) { s.watchers['a']->once = [&s] { s.drop(); }, s.source.get()->level(); }, "aba0a0b0c",
       ""},
      {"throws", [](Stage&) { throw 1; }, "ab", "abc"},
      {"announces, which throws",
       [](Stage& s) { s.watchers['a']->once = [] { throw 1; }, s.source->level(); }, "aba", "abc"},
  };
  for (auto const& [title, disturbance, first, second] : cases) {
    SCOPED_TRACE(title);
    Stage stage;
    for (char letter : {'a', 'b', 'c'}) stage.add(letter);
    stage.watchers['b']->once = [&] { disturbance(stage); };
    try {
      stage.source.get()->level();
    } catch (int) {
    }
    EXPECT_EQ(std::exchange(stage.log, {}), first);
    EXPECT_EQ(stage.announced(), second);
  }
}

TEST(Notification, TheLastReferenceIsAnnounced) {
  Stage stage;
  stage.add('b');
  stage.addFirst('a');
  stage.watchers['a']->hasNotificationActiveIs(false);
  struct Saver : Watcher {
    Saver(Stage& stage)
        : Watcher('s', stage.source.get(), stage.log), saved(stage.source), from(stage.source.get()) {}
    void onZeroReferences() override { saved = from; }
    Ptr<Source>& saved;
    Source* from;
  };
  Ptr<Saver> const saver = Orb::makePtr<Saver>(stage);
  saver->isRegisteredNotifieeIs(true);
  stage.drop();
  EXPECT_EQ(std::exchange(stage.log, {}), "0a0b");
  ASSERT_TRUE(stage.source);
  EXPECT_EQ(stage.source->references(), 1u);
  saver->isRegisteredNotifieeIs(false);
  stage.drop();
  EXPECT_EQ(stage.log, "0a0b");
  EXPECT_FALSE(stage.watchers['a']->isRegisteredNotifiee());
}

// Tells of each entry that a directory announces whether it is there, and acts once like any watcher.
class DirWatcher : public Orb::PtrInterface::NotifieeConst {
 public:
  explicit DirWatcher(Orb::Dir const& dir) : dir_(dir) {
    hasNotificationActiveIs(true);
    isRegisteredNotifieeIs(true);
  }
  void onAttribute(Orb::AttributeId id, void const* key) override {
    if (id != Orb::Dir::entryAttr.id) return;
    auto const& name = *static_cast<Orb::Name const*>(key);
    Ptr<Orb::Entity> const entity = dir_.entityPtr(name);
    log += name.text() + (entity ? entity->fullName() : "-") + " ";
  }
  Ptr<PtrInterface const> notifier() const override { return &dir_; }
  void notifierIs(Ptr<PtrInterface const> const&) override {}
  std::string log;

 private:
  Orb::Dir const& dir_;
};

TEST(Dir, AnnouncesEachChangeOnceAndInForce) {
  Ptr<Orb::Dir> const dir = Orb::makePtr<Orb::Dir>("d");
  Ptr<DirWatcher> const watcher = Orb::makePtr<DirWatcher>(*dir);
  Ptr<Source> const a = Orb::makePtr<Source>("a"), other = Orb::makePtr<Source>("a"),
                    b = Orb::makePtr<Source>("b");
  auto const heard = [&] { return std::exchange(watcher->log, {}); };

  dir->entryIs(a);
  dir->entryIs(b);
  dir->entryIs(a);
  EXPECT_EQ(heard(), "a/d/a b/d/b ");
  dir->entryIs(other);
  EXPECT_EQ(heard(), "a/d/a ");
  EXPECT_EQ(a->parent(), nullptr);
  EXPECT_EQ(other->parentAttrName(), "entry");
  EXPECT_FALSE(dir->entryDel("c"));
  EXPECT_EQ(dir->entryDel(other->name()), other);
  EXPECT_EQ(heard(), "a- ");
  EXPECT_EQ(dir->entityPtr("a"), nullptr);

  // Whoever hears that b has lost its parent takes its successor out again.
  std::string log;
  Ptr<Source> const successor = Orb::makePtr<Source>("b");
  Ptr<Watcher> const ofB = Orb::makePtr<Watcher>('w', b.get(), log);
  ofB->isRegisteredNotifieeIs(true);
  ofB->once = [&] { dir->entryDel("b"); };
  dir->entryIs(successor);
  EXPECT_EQ(heard(), "b- b- ");
  EXPECT_EQ(successor->parent(), nullptr);

  // An entity in two directories belongs to the latest; a directory may go in the middle of its own change.
  Ptr<Orb::Dir> second = Orb::makePtr<Orb::Dir>("e");
  dir->entryIs(b);
  second->entryIs(b);
  dir->entryDelAll();
  EXPECT_EQ(b->fullName(), "/e/b");
  ofB->once = [&] { second = nullptr; };
  second.get()->entryDel("b");
  EXPECT_EQ(b->fullName(), "/b");
  EXPECT_EQ(second, nullptr);
  ofB->isRegisteredNotifieeIs(false);
}

}  // namespace
