// The job's row in the table tallow_checkpoint, by which loaders exclude each other.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "load/job/job_record.hpp"
#include "load/target/database.hpp"

namespace tallow::load {

// Where the job's row is, with the transaction in which it changes together with the rows of the
// data. Every function throws DatabaseError.
class JobStore {
 public:
  virtual ~JobStore() = default;

  // Closes the connection, if there is one, and makes a new one. What the old one has under way may
  // still succeed until claim() returns.
  virtual void connect() = 0;
  virtual std::optional<JobRecord> read() = 0;
  // Adds 1 to the row's commit number. False if there is no row. Waits for what another connection
  // does to the row, and makes every later write() of that connection fail.
  virtual bool claim() = 0;
  // Makes the row, with commit number 1. False if there is one; then the transaction must be rolled
  // back.
  virtual bool make(const JobRecord& record) = 0;
  // Writes settings and progress into the row that has the record's commit number, and adds 1 to
  // the number. False if there is no such row any more.
  virtual bool write(const JobRecord& record) = 0;
  // Removes the row that has this commit number, if it still exists.
  virtual void remove(std::uint64_t commitNumber) = 0;
  virtual void commit() = 0;
  virtual void rollback() = 0;
};

// The row in a database.
class SqlJobStore : public JobStore {
 public:
  // Does not connect yet.
  SqlJobStore(DatabaseFactory makeConnection, std::string job);

  // The connection, valid until the next connect().
  Database& database() noexcept { return *database_; }
  // Whether there is a connection that is known to be gone.
  bool isDead() const { return database_ && database_->isDead(); }
  // Makes the table if it does not exist. Ends the transaction. Throws ToolError if the table has
  // no transactions.
  void provideTable();

  void connect() override;
  std::optional<JobRecord> read() override;
  bool claim() override;
  bool make(const JobRecord& record) override;
  bool write(const JobRecord& record) override;
  void remove(std::uint64_t commitNumber) override;
  void commit() override { database_->commit(); }
  void rollback() override { database_->rollback(); }

 private:
  bool tableHas(const std::string& columns);
  void provideRejectsFile();
  void makeTable();

  DatabaseFactory makeConnection_;
  std::string job_;
  std::unique_ptr<Database> database_;
};

}  // namespace tallow::load
