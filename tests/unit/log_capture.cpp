#include "log_capture.h"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace unit_test {

namespace {

// Not taken from <syslog.h>: with fortification its syslog() is a macro.
constexpr int PRIORITY_ERR = 3;

std::vector<LogLine>& Lines() {
    static std::vector<LogLine> lines;
    return lines;
}

// What syslog does before formatting: "%m" becomes the text of `savedErrno`.
std::string ExpandErrnoText(const char* format, int savedErrno) {
    std::string expanded;
    for (const char* c = format; *c != '\0'; ++c) {
        if (c[0] == '%' && (c[1] == '%' || c[1] == 'm')) {
            if (c[1] == '%') {
                expanded += "%%";
            } else {
                for (const char* t = std::strerror(savedErrno); *t != '\0'; ++t) {
                    expanded += *t == '%' ? std::string("%%") : std::string(1, *t);
                }
            }
            ++c;
        } else {
            expanded += *c;
        }
    }
    return expanded;
}

void Capture(int priority, const char* format, va_list args) {
    const int savedErrno = errno;
    const std::string expanded = ExpandErrnoText(format, savedErrno);
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, expanded.c_str(), measure);
    va_end(measure);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, expanded.c_str(), args);
    Lines().push_back({priority, text});
    errno = savedErrno;
}

bool IsDigits(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    for (unsigned char c : text) {
        if (!std::isdigit(c)) {
            return false;
        }
    }
    return true;
}

class LogLineMatcher : public testing::MatcherInterface<const LogLine&> {
public:
    LogLineMatcher(std::string sourceFile, std::string message)
        : sourceFile_(std::move(sourceFile)), message_(std::move(message)) {}

    bool MatchAndExplain(const LogLine& line, testing::MatchResultListener* listener) const override {
        if (line.priority != PRIORITY_ERR) {
            *listener << "whose priority is " << line.priority;
            return false;
        }
        const std::string head = sourceFile_ + ":";
        const std::string tail = " velasystemd: " + message_;
        const std::string& text = line.text;
        if (text.size() < head.size() + tail.size() + 1 || text.compare(0, head.size(), head) != 0 ||
            text.compare(text.size() - tail.size(), tail.size(), tail) != 0 ||
            !IsDigits(text.substr(head.size(), text.size() - head.size() - tail.size()))) {
            *listener << "whose text differs";
            return false;
        }
        return true;
    }

    void DescribeTo(std::ostream* out) const override {
        *out << "is the LOG_ERR line \"" << sourceFile_ << ":<line> velasystemd: " << message_ << "\"";
    }

private:
    std::string sourceFile_;
    std::string message_;
};

}  // namespace

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << "<" << line.priority << "> \"" << line.text << "\"";
}

std::vector<LogLine> LoggedLines() { return Lines(); }

void ClearLog() { Lines().clear(); }

testing::Matcher<const LogLine&> IsLogLine(const std::string& sourceFile, const std::string& message) {
    return testing::MakeMatcher(new LogLineMatcher(sourceFile, message));
}

}  // namespace unit_test

// Defined here, these take the place of the C library's for the whole binary:
// the generator is linked in statically and calls them directly.
extern "C" {

void vsyslog(int priority, const char* format, va_list args) {
    unit_test::Capture(priority, format, args);
}

void syslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    unit_test::Capture(priority, format, args);
    va_end(args);
}

void __vsyslog_chk(int priority, int, const char* format, va_list args) {
    unit_test::Capture(priority, format, args);
}

void __syslog_chk(int priority, int, const char* format, ...) {
    va_list args;
    va_start(args, format);
    unit_test::Capture(priority, format, args);
    va_end(args);
}

}  // extern "C"
