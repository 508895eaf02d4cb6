#include "load/target/postgres_session.hpp"

#include <array>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "common/tool_error.hpp"
#include "load/target/call_watch.hpp"
#include "load/target/postgres_text.hpp"

namespace tallow::load {
namespace {

// A server that sends ever new notices does not fill the memory.
constexpr std::size_t kMostNotices = 100;

// Bytes that go to the library at once. With larger pieces, most of them wait for the socket: from
// 64 KiB on, a load took 1.4 times as long under Wine.
constexpr std::size_t kPiece = std::size_t{16} * 1024;

// A connection that is gone has no SQLSTATE of the server.
constexpr const char* kConnectionGone = "08006";

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

}  // namespace

void PostgresSession::Closer::operator()(pg_conn* connection) const {
  const WatchedCall watched;
  library->finish(connection);
}

PostgresSession::PostgresSession(const LibPq& library, const std::string& address,
                                 const std::string& clientName, NoticeHandler onNotice)
    : library_(library), onNotice_(std::move(onNotice)), connection_(nullptr, Closer{&library}) {
  connect(address, clientName);
}

// What the address leaves open, as keywords and values. Gives no time limit where the user has one.
std::vector<const char*> PostgresSession::defaults(const std::string& address) const {
  char* reason = nullptr;
  pq::ConnectionOption* options = library_.conninfoParse(address.c_str(), &reason);
  if (options == nullptr) {
    const std::string text = oneLine(reason != nullptr ? reason : "out of memory");
    library_.freemem(reason);
    throw tools::MisuseError("the address of the database cannot be read: " + text +
                             "; write postgresql://USER@HOST:PORT/DATABASE");
  }
  bool isLimited = isSet("PGCONNECT_TIMEOUT") || isSet("PGSERVICE");
  for (const pq::ConnectionOption* option = options; option->keyword != nullptr; ++option) {
    const std::string_view keyword = option->keyword;
    const bool limits = keyword == "connect_timeout" || keyword == "service";
    isLimited = isLimited || (limits && option->value != nullptr);
  }
  library_.conninfoFree(options);
  std::vector<const char*> list = {"keepalives_idle", "30", "keepalives_interval", "10"};
  if (!isLimited) list.insert(list.end(), {"connect_timeout", "15"});
  return list;
}

// What comes before the address is overruled by it, and what comes after it overrules it.
void PostgresSession::connect(const std::string& address, const std::string& clientName) {
  std::vector<const char*> list = defaults(address);
  list.insert(list.end(), {"fallback_application_name", clientName.c_str(), "dbname",
                           address.c_str(), "client_encoding", "UTF8"});
  std::vector<const char*> keywords;
  std::vector<const char*> values;
  for (std::size_t i = 0; i < list.size(); i += 2) {
    keywords.push_back(list[i]);
    values.push_back(list[i + 1]);
  }
  keywords.push_back(nullptr);
  values.push_back(nullptr);
  {
    const WatchedCall watched;
    connection_.reset(library_.connectdbParams(keywords.data(), values.data(), 1));
  }
  if (!connection_) throw std::bad_alloc();
  if (isDead()) {
    Diagnostic diagnostic{"08001", 0, oneLine(library_.errorMessage(connection_.get()))};
    if (!isWrongSetting(diagnostic.text)) {
      throw DatabaseError(std::move(diagnostic), Dialect::kPostgres, Step::kConnect);
    }
    throw DatabaseError(std::move(diagnostic), Fault::kPermanent, Step::kConnect);
  }
  library_.setNoticeReceiver(connection_.get(), &PostgresSession::onNotice, this);
}

// Called by the library within any other call. That a server goes down (class 57) comes as an error
// as well.
void PostgresSession::onNotice(void* self, const pg_result* notice) {
  auto& session = *static_cast<PostgresSession*>(self);
  try {
    const std::string text = session.field(notice, pq::kPrimaryMessage);
    if (session.field(notice, pq::kSqlState).starts_with("57")) return;
    const bool isNew =
        session.noticesShown_.size() < kMostNotices && session.noticesShown_.insert(text).second;
    if (isNew && session.onNotice_) session.onNotice_(oneLine(text));
  } catch (const std::bad_alloc&) {
    return;  // The load matters more than the note.
  }
}

std::string PostgresSession::field(const pg_result* result, int which) const {
  const char* text = result != nullptr ? library_.resultErrorField(result, which) : nullptr;
  return text != nullptr ? text : "";
}

DatabaseError PostgresSession::errorOf(const pg_result* result, Step step) const {
  Diagnostic diagnostic{field(result, pq::kSqlState), 0, field(result, pq::kPrimaryMessage)};
  for (const int which : {pq::kDetail, pq::kHint}) {
    const std::string more = field(result, which);
    if (!more.empty()) diagnostic.text += "; " + more;
  }
  if (diagnostic.text.empty()) diagnostic.text = oneLine(library_.errorMessage(connection_.get()));
  // Without an answer of the server nobody knows what has become of the statement.
  if (diagnostic.state.empty()) diagnostic.state = kConnectionGone;
  return {std::move(diagnostic), Dialect::kPostgres, step};
}

PostgresSession::Result PostgresSession::exec(const std::string& sql) {
  const WatchedCall watched;
  return {library_.exec(connection_.get(), sql.c_str()), Clearer{&library_}};
}

PostgresSession::Result PostgresSession::nextResult() {
  const WatchedCall watched;
  return {library_.getResult(connection_.get()), Clearer{&library_}};
}

std::string PostgresSession::run(const std::string& sql) {
  const Result result = exec(sql);
  if (result && library_.resultStatus(result.get()) == pq::kCommandOk) {
    return library_.cmdStatus(result.get());
  }
  throw errorOf(result.get(), Step::kOther);
}

void PostgresSession::beginTransaction() {
  if (!isInTransaction()) run("BEGIN");
}

SqlResult PostgresSession::query(const std::string& sql, std::span<const SqlValue> parameters) {
  std::vector<std::string> texts(parameters.size());
  std::vector<const char*> values(parameters.size());
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    if (std::holds_alternative<std::monostate>(parameters[i])) continue;
    const auto* number = std::get_if<std::uint64_t>(&parameters[i]);
    texts[i] = number != nullptr ? std::to_string(*number) : std::get<std::string>(parameters[i]);
    values[i] = texts[i].c_str();
  }
  Result result(nullptr, Clearer{&library_});
  {
    const WatchedCall watched;
    result.reset(library_.execParams(connection_.get(), sql.c_str(),
                                     static_cast<int>(parameters.size()), nullptr, values.data(),
                                     nullptr, nullptr, 0));
  }
  const int status = result ? library_.resultStatus(result.get()) : 0;
  if (status == pq::kCommandOk || status == pq::kTuplesOk) return contentOf(result.get());
  throw errorOf(result.get(), parameters.empty() ? Step::kOther : Step::kInsert);
}

SqlResult PostgresSession::contentOf(pg_result* result) const {
  SqlResult content;
  const std::string_view changed = library_.cmdTuples(result);
  std::from_chars(changed.data(), changed.data() + changed.size(), content.changed);
  const int columns = library_.nfields(result);
  for (int i = 0; i < columns; ++i) content.columns.emplace_back(library_.fname(result, i));
  const int rows = library_.ntuples(result);
  for (int row = 0; row < rows; ++row) {
    std::vector<std::optional<std::string>>& values = content.rows.emplace_back();
    for (int i = 0; i < columns; ++i) {
      if (library_.getisnull(result, row, i) != 0) {
        values.emplace_back();
      } else {
        const auto length = static_cast<std::size_t>(library_.getlength(result, row, i));
        values.emplace_back(std::string(library_.getvalue(result, row, i), length));
      }
    }
  }
  return content;
}

void PostgresSession::beginCopy(const std::string& sql) {
  const Result result = exec(sql);
  if (!result || library_.resultStatus(result.get()) != pq::kCopyIn) {
    throw errorOf(result.get(), Step::kOther);
  }
  copy_ = Copy::kOpen;
}

void PostgresSession::sendCopy(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::string_view piece = bytes.substr(0, kPiece);
    const WatchedCall watched;
    if (library_.putCopyData(connection_.get(), piece.data(), static_cast<int>(piece.size())) !=
        1) {
      throw errorOf(nullptr, Step::kOther);
    }
    bytes.remove_prefix(piece.size());
  }
}

void PostgresSession::closeCopy(const char* reason) {
  copy_ = Copy::kClosed;
  const WatchedCall watched;
  if (library_.putCopyEnd(connection_.get(), reason) != 1) throw errorOf(nullptr, Step::kOther);
}

std::optional<CopyFailure> PostgresSession::awaitCopy() {
  std::optional<CopyFailure> failure;
  bool answered = false;
  while (const Result result = nextResult()) {
    answered = true;
    if (library_.resultStatus(result.get()) == pq::kCommandOk || failure) continue;
    failure.emplace(errorOf(result.get(), Step::kInsert), field(result.get(), pq::kContext));
  }
  copy_ = Copy::kNone;
  if (!answered) throw errorOf(nullptr, Step::kOther);
  return failure;
}

void PostgresSession::abandonCopy() {
  if (copy_ == Copy::kOpen) closeCopy("the load goes back to its checkpoint");
  if (copy_ == Copy::kClosed) awaitCopy();
}

}  // namespace tallow::load
