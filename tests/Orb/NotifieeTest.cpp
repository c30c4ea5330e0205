#include <gtest/gtest.h>

#include <map>

#include "Orb/Dir.h"
#include "support/Watcher.h"

namespace {

using Orb::makePtr, Orb::Ptr;
using TestSupport::Source, TestSupport::Watcher;

// A source and its watchers, named by letters. When b is called for the first time it does as its script
// says, and then a, the next time, as its own. A script is a sequence of (what, whom).
struct Stage {
  std::string outer, inner;
  Ptr<Source> source = makePtr<Source>();
  std::map<char, Ptr<Watcher>> watchers = {};
  std::string log = {};

  void add(char letter) {
    if (watchers.contains(letter)) {
      source->notifieeList()->add(*watchers[letter]);
      return;
    }
    watchers[letter] = makePtr<Watcher>(*source, [this, letter](Orb::AttributeId id, void const*) {
      log += id == Orb::noAttribute ? "0" : "";
      log += letter;
      if (letter == 'b') {
        act(std::exchange(outer, ""));
      } else if (letter == 'a' && outer.empty()) {
        act(std::exchange(inner, ""));
      }
    });
  }

  void act(std::string const& script) {
    for (size_t at = 0; at < script.size(); at += 2) {
      char const whom = script[at + 1];
      switch (script[at]) {
        case '+': add(whom); break;
        case '^': add(whom), source->notifieeList()->addFirst(*watchers[whom]); break;
        case '-': watchers[whom]->isRegisteredNotifieeIs(false); break;
        case '!': watchers.erase(whom); break;
        case 'o': watchers[whom]->hasNotificationActiveIs(false); break;
        case 'z': watchers[whom]->orbDoZombieReactors(true); break;
        case '=': source->notifieeList()->removeAll(); break;
        case '*': source.get()->level(); break;
        case '.': source = nullptr; break;
        default: throw script;
      }
    }
  }

  std::string announced() {
    try {
      if (source) source.get()->level();
    } catch (std::string const& script) {
      log += script;
    }
    return std::exchange(log, {});
  }
};

TEST(Notification, Disturbed) {
  struct {
    char const *outer, *inner;
    char const *first, *second;  // who is called in the disturbed delivery, and in the next one
  } const cases[] = {
      {"", "", "abc", "abc"},         {"-b", "", "abc", "ac"},  // b removes itself, ...
      {"!b", "", "abc", "ac"},                                  // ... destroys itself,
      {"-a", "", "abc", "bc"},                                  // ... one that has been called,
      {"-c", "", "ab", "ab"},                                   // ... one that has not,
      {"!c!a", "", "ab", "b"},                                  // ... or all others.
      {"-b+b", "", "abc", "acb"},                               // Who is added again is called the next time.
      {"-c+c", "", "ab", "abc"},      {"+a+c", "", "abc", "abc"},  // They stand there already.
      {"+d^e", "", "abc", "eabcd"},   {"^d!a+e", "", "abc", "dbce"},
      {"oc", "", "ab", "ab"},                                       // Switched off, or marked for deletion.
      {"zc", "", "ab", "ab"},         {"**", "", "ababcc", "abc"},  // Deliveries nest.
      {"**", "-a", "ababcc", "bc"},   {"**", "+d", "ababcc", "abcd"},
      {"**", "^d", "ababcc", "dabc"}, {"**", "!c", "abab", "ab"},
      {"**!c", "-b+b", "abac", "ab"}, {"..", "", "ab0a0b0c", ""},  // The source goes.
      {"**", "..", "aba0a0b0c", ""},  {"xx", "", "abxx", "abc"},   // An exception leaves through the setter.
      {"**", "xx", "abaxx", "abc"},   {"=*+d", "", "ab", "d"},     // All are taken off.
  };
  for (auto const& [outer, inner, first, second] : cases) {
    SCOPED_TRACE(std::string(outer) + " " + inner);
    Stage stage{outer, inner};
    stage.act("+a+b+c");
    EXPECT_EQ(stage.announced(), first);
    EXPECT_EQ(stage.announced(), second);
  }
}

TEST(Notification, TheLastReferenceIsAnnounced) {
  Ptr<Source> source = makePtr<Source>(), saved;
  std::string log;
  Ptr<Watcher> const inactive =
      makePtr<Watcher>(*source, [&](Orb::AttributeId id, auto) { log += id ? 'x' : '0'; });
  inactive->hasNotificationActiveIs(false);
  Ptr<Watcher> saver = makePtr<Watcher>(*source, [&, object = source.get()](auto, auto) { saved = object; });
  source = nullptr;
  ASSERT_EQ(log, "0");
  EXPECT_EQ(saved->references(), 1u);
  saver = nullptr;
  saved = nullptr;
  EXPECT_EQ(log, "00");
  EXPECT_FALSE(inactive->isRegisteredNotifiee());
}

TEST(Dir, AnnouncesEachChangeOnceAndInForce) {
  auto const dir = makePtr<Orb::Dir>("d");
  auto const a = makePtr<Source>("a"), other = makePtr<Source>("a"), b = makePtr<Source>("b");
  std::string log;
  auto const watcher = makePtr<Watcher>(*dir, [&](Orb::AttributeId id, void const* key) {
    ASSERT_EQ(id, Orb::Dir::entryAttr.id);
    auto const& name = *static_cast<Orb::Name const*>(key);
    log += name.text() + (dir->entityPtr(name) ? dir->entityPtr(name)->fullName() : "-") + " ";
  });
  auto const heard = [&] { return std::exchange(log, {}); };

  dir->entryIs(a);
  dir->entryIs(b);
  dir->entryIs(a);
  EXPECT_EQ(heard(), "a/d/a b/d/b ");
  dir->entryIs(other);
  EXPECT_EQ(heard(), "a/d/a ");
  EXPECT_EQ(a->fullName() + other->fullName(), "/a/d/a");
  EXPECT_FALSE(dir->entryDel("c"));
  EXPECT_EQ(dir->entryDel(other->name()), other);
  EXPECT_EQ(heard(), "a- ");

  // Whoever hears that b has lost its parent takes its successor out again.
  auto const successor = makePtr<Source>("b");
  std::function<void()> action = [&] { dir->entryDel("b"); };
  auto const ofB = makePtr<Watcher>(*b, [&](auto, auto) {
    if (auto const once = std::exchange(action, {})) once();
  });
  dir->entryIs(successor);
  EXPECT_EQ(heard(), "b- b- ");
  EXPECT_EQ(successor->parent(), nullptr);

  // An entity in two directories belongs to the latest; a directory may go in the middle of its own change.
  Ptr<Orb::Dir> second = makePtr<Orb::Dir>("e");
  dir->entryIs(b);
  second->entryIs(b);
  dir->entryDelAll();
  EXPECT_EQ(b->fullName(), "/e/b");
  action = [&] { second = nullptr; };
  second.get()->entryDel("b");
  EXPECT_EQ(b->fullName(), "/b");
}

}  // namespace
