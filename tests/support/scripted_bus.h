// scripted_bus.h: a message bus with a desktop and an authorisation service behind it, which do what a test tells
// them to.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <kestrelwood/values/data.h>

#include "platform/base/unique_fd.h"

namespace ksw::test {

/// How the bus, or the desktop behind it, behaves.
enum class BusBehaviour {
    Answers,            ///< Gives each notice a number: 1, 2, …; one that replaces another keeps that one's.
    AnswersInPieces,    ///< The same, a byte at a time, with signals before each answer, in the other byte order.
    LetsNobodyIn,       ///< Refuses the user.
    HasNoDesktop,       ///< Answers a notice with an error.
    GivesNoNumber,      ///< Answers a notice without a number, and lets nobody do anything.
    NeverAnswers,       ///< Takes a notice and says nothing.
    NeverGreets,        ///< Takes a connection and says nothing.
    GoesAway,           ///< Closes the connection instead of answering a notice.
    AnswersNonsense,    ///< Answers a notice with bytes that are no message.
    AnswersTooMuch,     ///< Answers a notice with a message of more bytes than any may have.
    SaysEverythingElse  ///< Answers a notice with signals only, for as long as anybody listens.
};

/// A notice as the desktop got it.
struct ShownNotice {
    std::string application;
    std::string summary;
    std::string body;
    std::uint32_t replaces = 0;
    std::uint8_t urgency = 0;
    std::string signature;
};

/// What the authorisation service was asked.
struct AskedRight {
    std::uint32_t pid = 0;
    std::uint64_t startTime = 0;
    std::uint32_t uid = 0;
    std::string action;
    std::string signature;
};

/// Listens at a path while it lives. Any thread.
class ScriptedBus {
public:
    ScriptedBus(const std::string& path, BusBehaviour behaviour);
    ~ScriptedBus();
    ScriptedBus(const ScriptedBus&) = delete;
    ScriptedBus& operator=(const ScriptedBus&) = delete;

    /// The notices so far.
    std::vector<ShownNotice> shown() const;
    int connections() const;
    /// The questions so far.
    std::vector<AskedRight> asked() const;

private:
    void serveAll();
    void serve(int fd);
    bool answerCall(int fd, const Data& message);
    bool answerQuestion(int fd, const Data& message);
    bool answerNotice(int fd, std::uint32_t serial, const Data& message);
    bool receive(int fd, Data& bytes, std::size_t size) const;
    std::string receiveLine(int fd) const;
    bool send(int fd, const Data& bytes) const;
    bool waitForEnd(int fd) const;
    bool isReadable(int fd) const;

    const BusBehaviour behaviour_;
    UniqueFd listener_;
    UniqueFd stop_;
    mutable std::mutex mutex_;  // guards the four below
    std::vector<ShownNotice> shown_;
    std::vector<AskedRight> asked_;
    int connections_ = 0;
    std::uint32_t lastNumber_ = 0;
    std::thread thread_;
};

}  // namespace ksw::test
