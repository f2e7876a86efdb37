// What the store keeps beside items: settings, payloads, jobs, switches; and how all of it goes.
#include "platform/base/limits.h"
#include "servers/kestrelwoodd/store.h"

namespace ksw::daemon {

using namespace servers;

namespace {

constexpr std::string_view kPutSettings =
    "INSERT INTO settings (uid, record) VALUES (?1, ?2) ON CONFLICT (uid) DO UPDATE SET record = ?2";
constexpr std::string_view kPutPayload =
    "INSERT INTO payloads (identifier, payload) VALUES (?1, ?2) ON CONFLICT (identifier) DO UPDATE SET payload = "
    "?2";
constexpr std::string_view kRemovePayload = "DELETE FROM payloads WHERE identifier = ?1";
constexpr std::string_view kPutJob =
    "INSERT INTO jobs (path, label, job) VALUES (?1, ?2, ?3)"
    " ON CONFLICT (path) DO UPDATE SET label = ?2, job = ?3";
constexpr std::string_view kRemoveJob = "DELETE FROM jobs WHERE path = ?1";
constexpr std::string_view kAlwaysPosts = "always-posts";
constexpr std::string_view kPutSwitch =
    "INSERT INTO switches (name, value) VALUES (?1, ?2) ON CONFLICT (name) DO UPDATE SET value = ?2";
/// What refers to something else goes before it.
constexpr const char* kErase =
    "DELETE FROM items; DELETE FROM settings; DELETE FROM users; DELETE FROM payloads; DELETE FROM jobs;"
    " DELETE FROM switches";

Bytes bytesIn(const Statement& statement, int column) {
    return statement.bytes(column, limits::kStringMax).value_or(Bytes());
}

std::string_view textIn(const Statement& statement, int column) {
    return statement.text(column, limits::kFieldMax).value_or(std::string_view());
}

}  // namespace

Status Store::run(std::string_view statement, const std::function<void(Statement&)>& bind) {
    Result<Statement> prepared = database_.prepare(statement);
    if (!prepared) {
        return prepared.error();
    }
    bind(*prepared);
    return prepared->run();
}

Status Store::erase() {
    return database_.execute(kErase);
}

Status Store::keep(const Change& change) {
    Status done;
    for (const Change::Settings& settings : change.settings) {
        done = done ? run(kPutSettings,
                          [&](Statement& put) {
                              put.bind(1, std::int64_t{settings.uid}).bind(2, Bytes(settings.record));
                          })
                    : std::move(done);
    }
    for (const Change::Payload& payload : change.payloads) {
        done = done ? run(payload.payload ? kPutPayload : kRemovePayload,
                          [&](Statement& put) {
                              put.bind(1, std::string_view(payload.identifier));
                              if (payload.payload) {
                                  put.bind(2, Bytes(*payload.payload));
                              }
                          })
                    : std::move(done);
    }
    for (const std::string& path : change.removedJobs) {
        done = done ? run(kRemoveJob, [&](Statement& remove) { remove.bind(1, std::string_view(path)); })
                    : std::move(done);
    }
    for (const JobRow& job : change.jobs) {
        done = done ? run(kPutJob,
                          [&](Statement& put) {
                              put.bind(1, std::string_view(job.path))
                                  .bind(2, std::string_view(job.label))
                                  .bind(3, Bytes(job.job));
                          })
                    : std::move(done);
    }
    if (done && change.alwaysPosts) {
        done = run(kPutSwitch, [&](Statement& put) {
            put.bind(1, kAlwaysPosts).bind(2, std::int64_t{*change.alwaysPosts ? 1 : 0});
        });
    }
    return done;
}

Status Store::readRows(std::string_view statement, const std::function<void(const Statement&)>& row) {
    Result<Statement> rows = database_.prepare(statement);
    if (!rows) {
        return rows.error();
    }
    Result<bool> next = rows->step();
    for (; next.ok() && *next; next = rows->step()) {
        row(*rows);
    }
    return checked(next);
}

Status Store::readSettings(const std::function<void(Uid, Bytes)>& settings) {
    return readRows("SELECT uid, record FROM settings",
                    [&](const Statement& row) { settings(static_cast<Uid>(row.integer(0)), bytesIn(row, 1)); });
}

Status Store::readPayloads(const std::function<void(std::string_view, Bytes)>& payload) {
    return readRows("SELECT identifier, payload FROM payloads",
                    [&](const Statement& row) { payload(textIn(row, 0), bytesIn(row, 1)); });
}

Status Store::readJobs(const std::function<void(JobRow)>& job) {
    return readRows("SELECT path, label, job FROM jobs", [&](const Statement& row) {
        const Bytes bytes = bytesIn(row, 2);
        job({std::string(textIn(row, 0)), std::string(textIn(row, 1)), Data(bytes.begin(), bytes.end())});
    });
}

Result<bool> Store::readAlwaysPosts() {
    bool posts = false;
    Status read = readRows("SELECT value FROM switches WHERE name = 'always-posts'",
                           [&posts](const Statement& row) { posts = row.integer(0) != 0; });
    return read ? Result<bool>(posts) : read.error();
}

}  // namespace ksw::daemon
