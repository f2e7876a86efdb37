// settings: a terminal on which a user sees what opens at login and what runs in the background, always as it is
// now, and decides about it. Keys: up and down (or k and j) choose, a allows, d disallows, r removes a login item,
// q ends. Exit status 0, 2 without a terminal.
#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <kestrelwood/kestrelwood.h>

namespace {

/// The terminal, read key by key for as long as this lives.
class Terminal {
public:
    Terminal() : isThere_(tcgetattr(STDIN_FILENO, &former_) == 0) {
        termios raw = former_;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        if (isThere_) {
            tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        }
    }
    ~Terminal() {
        if (isThere_) {
            tcsetattr(STDIN_FILENO, TCSANOW, &former_);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool isThere() const { return isThere_; }

private:
    termios former_{};
    bool isThere_;
};

/// A name is anybody's text: nothing in it may move the cursor, or pass for another.
std::string shown(const std::optional<std::string>& name) {
    std::string text;
    for (const char byte : name.value_or("(without a name)")) {
        text += byte >= ' ' && byte <= '~' ? byte : '?';
    }
    return text;
}

/// Draws both lists, and keeps which line is chosen.
class Screen : public KSWLoginItemControllerDelegate, public KSWBackgroundItemControllerDelegate {
public:
    void loginItemControllerDidChangeItems(const std::shared_ptr<KSWLoginItemController>& controller) override {
        const KSWLoginItemController::Items items = controller->items();
        loginItems_.assign(items.begin(), items.end());
        draw();
    }
    void backgroundItemControllerDidChangeItems(
        const std::shared_ptr<KSWBackgroundItemController>& controller) override {
        const KSWBackgroundItemController::Items items = controller->items();
        backgroundItems_.assign(items.begin(), items.end());
        draw();
    }

    void say(std::string message) {
        message_ = std::move(message);
        draw();
    }
    void move(bool isDown) {
        if (isDown) {
            ++chosen_;
        } else if (chosen_ > 0) {
            --chosen_;
        }
        draw();
    }
    /// The chosen line's item; null when it is of the other list.
    std::shared_ptr<KSWLoginItem> chosenLoginItem() const {
        return chosen_ < loginItems_.size() ? loginItems_[chosen_] : nullptr;
    }
    std::shared_ptr<KSWBackgroundItem> chosenBackgroundItem() const {
        const std::size_t index = chosen_ - std::min(chosen_, loginItems_.size());
        return chosen_ >= loginItems_.size() && index < backgroundItems_.size() ? backgroundItems_[index] : nullptr;
    }

    void draw() {
        const std::size_t lines = loginItems_.size() + backgroundItems_.size();
        chosen_ = std::min(chosen_, lines == 0 ? 0 : lines - 1);
        std::size_t line = 0;
        std::cout << "\x1b[2J\x1b[HOpen at login\n";
        for (const auto& item : loginItems_) {
            drawLine(line++, item->hidden() ? "hidden" : "", item->name());
        }
        std::cout << "\nRuns in the background\n";
        for (const auto& item : backgroundItems_) {
            drawLine(line++, item->userElection() == KSWUserElectionAllowed ? "allowed" : "not allowed",
                     item->name());
        }
        std::cout << "\n" << message_ << "\na allow  d disallow  r remove  q quit" << std::endl;
    }

private:
    void drawLine(std::size_t line, const std::string& state, const std::optional<std::string>& name) const {
        std::cout << (line == chosen_ ? "> " : "  ") << shown(name) << (state.empty() ? "" : "  [" + state + "]")
                  << "\n";
    }

    std::vector<std::shared_ptr<KSWLoginItem>> loginItems_;
    std::vector<std::shared_ptr<KSWBackgroundItem>> backgroundItems_;
    std::size_t chosen_ = 0;
    std::string message_;
};

/// The user's decisions, carried out.
class Settings {
public:
    /// False when the user is done.
    bool press(char key) {
        switch (key) {
            case 'q':
                return false;
            case 'j':
            case 'B':  // the end of what the key "down" sends
                screen_->move(true);
                break;
            case 'k':
            case 'A':
                screen_->move(false);
                break;
            case 'a':
                elect(KSWUserElectionAllowed);
                break;
            case 'd':
                elect(KSWUserElectionDisallowed);
                break;
            case 'r':
                if (const auto item = screen_->chosenLoginItem()) {
                    loginItems_->removeLoginItem(item);
                }
                break;
            default:
                break;
        }
        return true;
    }

private:
    void elect(std::int64_t election) {
        const std::shared_ptr<const KSWBackgroundItem> item = screen_->chosenBackgroundItem();
        if (item == nullptr) {
            return;
        }
        // The answer comes on another thread, and the screen is the main thread's.
        background_->setUserElection(election, item, [screen = screen_](bool success) {
            ksw::MainQueue::async([screen, success] { screen->say(success ? "" : "That cannot be changed."); });
        });
    }

    std::shared_ptr<Screen> screen_ = std::make_shared<Screen>();
    std::shared_ptr<KSWLoginItemController> loginItems_ =
        KSWLoginItemController::initWithTypeMask(KSWItemTypeAll, screen_);
    std::shared_ptr<KSWBackgroundItemController> background_ =
        KSWBackgroundItemController::initWithDelegate(screen_);
};

}  // namespace

int main() {
    const Terminal terminal;
    if (!terminal.isThere()) {
        std::cerr << "settings: standard input is no terminal\n";
        return 2;
    }
    Settings settings;
    std::array<pollfd, 2> waited{{{STDIN_FILENO, POLLIN, 0}, {ksw::MainQueue::descriptor(), POLLIN, 0}}};
    while (poll(waited.data(), waited.size(), -1) >= 0 || errno == EINTR) {
        ksw::MainQueue::runWaiting();
        char key = 'q';
        if (waited[0].revents != 0 && (read(STDIN_FILENO, &key, 1) != 1 || !settings.press(key))) {
            break;
        }
        waited[0].revents = 0;
    }
    return 0;
}
