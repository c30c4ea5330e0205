#pragma once

#if QOREVPN_PEER_LMDB

#include <lmdb.h>

#include "Peer.h"

namespace Bench {

/// LMDB in its fastest safe-against-a-killed-process setting: in shared memory, writable map, no
/// synchronisation with a disk, no lock of readers' threads. Writes are gathered in transactions of `batch`
/// rows, so none of them is visible or safe before its batch is.
class LmdbStore {
 public:
  static constexpr char const* name = "LMDB";
  static constexpr size_t batch = 1000;

  explicit LmdbStore(Place const& place) : LmdbStore(place.path(), false) {}
  LmdbStore(std::string const& directory, bool readOnly) {
    std::string const path = directory + "/lmdb";
    require(mdb_env_create(&env_));
    require(mdb_env_set_mapsize(env_, size_t{4} << 30));
    unsigned const flags = MDB_NOSUBDIR | MDB_NOTLS | MDB_NORDAHEAD |
                           (readOnly ? unsigned{MDB_RDONLY} : unsigned{MDB_NOSYNC} | unsigned{MDB_WRITEMAP});
    require(mdb_env_open(env_, path.c_str(), flags, 0640));
    MDB_txn* txn = nullptr;
    require(mdb_txn_begin(env_, nullptr, readOnly ? unsigned{MDB_RDONLY} : 0U, &txn));
    require(mdb_dbi_open(txn, nullptr, 0, &dbi_));
    require(mdb_txn_commit(txn));
  }
  ~LmdbStore() { mdb_env_close(env_); }
  LmdbStore(LmdbStore const&) = delete;
  LmdbStore& operator=(LmdbStore const&) = delete;

  void insert(std::span<QorEvpn::Host const> hosts) {
    inBatches(hosts, [this](MDB_txn* txn, QorEvpn::Host const& host) {
      Bytes bytes(host);
      MDB_val key{sizeof bytes.key, bytes.key}, value{sizeof bytes.value, bytes.value};
      require(mdb_put(txn, dbi_, &key, &value, 0));
    });
  }
  void overwrite(std::span<QorEvpn::Host const> hosts) { insert(hosts); }
  void remove(std::span<QorEvpn::MacVniPair const> keys) {
    inBatches(keys, [this](MDB_txn* txn, QorEvpn::MacVniPair const& pair) {
      Bytes bytes(pair);
      MDB_val key{sizeof bytes.key, bytes.key};
      require(mdb_del(txn, dbi_, &key, nullptr));
    });
  }
  /// One snapshot for all look-ups.
  uint64_t find(std::span<QorEvpn::MacVniPair const> keys) {
    uint64_t sum = 0;
    reading([&](MDB_txn* txn) {
      for (QorEvpn::MacVniPair const& pair : keys) {
        Bytes bytes(pair);
        MDB_val key{sizeof bytes.key, bytes.key}, value{};
        if (mdb_get(txn, dbi_, &key, &value) == 0) sum += Bytes::sumOf(value.mv_data);
      }
    });
    return sum;
  }
  uint64_t walk() {
    uint64_t sum = 0;
    walkAll([&](MDB_val const&, MDB_val const& value) { sum += Bytes::sumOf(value.mv_data); });
    return sum;
  }
  uint64_t walk(uint32_t vni) {
    uint64_t sum = 0;
    walkAll([&](MDB_val const& key, MDB_val const& value) {
      uint32_t found = 0;
      std::memcpy(&found, static_cast<char const*>(key.mv_data) + 6, 4);
      if (__builtin_bswap32(found) == vni) sum += Bytes::sumOf(value.mv_data);
    });
    return sum;
  }
  double bytes() const {
    MDB_envinfo info{};
    MDB_stat stat{};
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &stat);
    return static_cast<double>((info.me_last_pgno + 1) * stat.ms_psize);
  }

 private:
  static void require(int error) {
    if (error != 0) fail(std::string("LMDB: ") + mdb_strerror(error));
  }
  template <class Item, class Action>
  void inBatches(std::span<Item const> items, Action const& action) {
    while (!items.empty()) {
      auto const some = items.first(std::min(batch, items.size()));
      items = items.subspan(some.size());
      MDB_txn* txn = nullptr;
      require(mdb_txn_begin(env_, nullptr, 0, &txn));
      for (Item const& item : some) action(txn, item);
      require(mdb_txn_commit(txn));
    }
  }
  template <class Action>
  void reading(Action const& action) {
    MDB_txn* txn = nullptr;
    require(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn));
    action(txn);
    mdb_txn_abort(txn);
  }
  template <class Action>
  void walkAll(Action const& action) {
    reading([&](MDB_txn* txn) {
      MDB_cursor* cursor = nullptr;
      require(mdb_cursor_open(txn, dbi_, &cursor));
      MDB_val key{}, value{};
      while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == 0) action(key, value);
      mdb_cursor_close(cursor);
    });
  }

  MDB_env* env_ = nullptr;
  MDB_dbi dbi_ = 0;
};

}  // namespace Bench

#endif
