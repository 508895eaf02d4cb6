// libpq with owners and exceptions. Every failure is a DatabaseError with the server's words.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "load/target/database.hpp"
#include "load/target/libpq.hpp"

namespace tallow::load {

// Called with each text that the server sends as a notice, once for each.
using NoticeHandler = std::function<void(const std::string& text)>;

// Why a COPY ended without its rows.
struct CopyFailure {
  DatabaseError error;
  std::string context;  // the server's words about where it was
};

// A connection. The destructor disconnects, which undoes what is not committed.
class PostgresSession {
 public:
  // `address` is a URI of libpq. Throws MisuseError if libpq can't read it.
  PostgresSession(const LibPq& library, const std::string& address, const std::string& clientName,
                  NoticeHandler onNotice);
  PostgresSession(const PostgresSession&) = delete;
  PostgresSession& operator=(const PostgresSession&) = delete;

  // 150004 for 15.4.
  int version() const { return library_.serverVersion(connection_.get()); }
  // Whether libpq knows that the connection is gone.
  bool isDead() const { return library_.status(connection_.get()) != pq::kConnectionOk; }
  bool isInTransaction() const {
    return library_.transactionStatus(connection_.get()) != pq::kTransactionIdle;
  }

  // Begins a transaction unless one is open.
  void beginTransaction();
  // Runs statements that have no results, separated by semicolons. Returns what the server says has
  // been done, as "ROLLBACK" after a COMMIT of a transaction that had failed.
  std::string run(const std::string& sql);
  // Runs one statement, with $1, $2, ... for the parameters.
  SqlResult query(const std::string& sql, std::span<const SqlValue> parameters);

  // Begins a COPY FROM STDIN. Other statements may stand before it.
  void beginCopy(const std::string& sql);
  // The server may refuse the bytes later.
  void sendCopy(std::string_view bytes);
  // Says that all has been sent, or with a reason that it is to be undone. Does not wait for the
  // answer.
  void closeCopy(const char* reason = nullptr);
  // Waits for the server's answer. None if it has taken all rows.
  std::optional<CopyFailure> awaitCopy();
  // Undoes a COPY that is still open.
  void abandonCopy();

 private:
  enum class Copy { kNone, kOpen, kClosed };
  struct Closer {
    const LibPq* library;
    void operator()(pg_conn* connection) const;
  };
  struct Clearer {
    const LibPq* library;
    void operator()(pg_result* result) const { library->clear(result); }
  };
  using Result = std::unique_ptr<pg_result, Clearer>;

  std::vector<const char*> defaults(const std::string& address) const;
  void connect(const std::string& address, const std::string& clientName);
  Result exec(const std::string& sql);
  Result nextResult();
  std::string field(const pg_result* result, int which) const;
  // With what the result says, or, without a result, what is known of the connection.
  DatabaseError errorOf(const pg_result* result, Step step) const;
  SqlResult contentOf(pg_result* result) const;
  static void onNotice(void* self, const pg_result* notice);

  const LibPq& library_;
  Copy copy_ = Copy::kNone;
  NoticeHandler onNotice_;
  std::set<std::string> noticesShown_;
  std::unique_ptr<pg_conn, Closer> connection_;
};

}  // namespace tallow::load
