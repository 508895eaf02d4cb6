// Puts rows into a table of PostgreSQL with one COPY for all of them.
#pragma once

#include <optional>
#include <string>

#include "load/target/copy_text.hpp"
#include "load/target/postgres_session.hpp"

namespace tallow::load {

// Where rows go to.
struct CopyTarget {
  std::string statement;  // COPY ... FROM STDIN
  std::string table;      // as the server names it when it says where an error was
};

// A COPY is open from the first row to the next flush. The server says only then whether it took
// the rows. If it names the bad one, RowsRefused has that one alone.
class CopyStream : public RowSink {
 public:
  // The session must outlive it.
  CopyStream(PostgresSession& session, CopyTarget target, std::optional<std::string> nullText);

  std::optional<Diagnostic> add(std::uint64_t number, const Row& row) override;
  void flush() override;

 private:
  void send();
  [[noreturn]] void refuse(const CopyFailure& failure) const;

  PostgresSession& session_;
  CopyTarget target_;
  CopyText text_;
  std::vector<std::uint64_t> numbers_;  // of the rows since the last flush
};

}  // namespace tallow::load
