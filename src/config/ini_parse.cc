// The ini grammar: comment lines, "[section]" headers and "key = value" lines; anything else is
// reported and skipped.
#include <algorithm>
#include <cstring>

#include <vex/log.h>

#include "base/ascii.h"
#include "config/ini_file.h"

namespace vex::config {
namespace {

class Parser {
public:
    Parser(File &file, std::string_view text)
        : file_(file),
          text_(text),
          section_(&file.sections.front()),
          has_cr_(std::memchr(text.data(), '\r', text.size()) != nullptr) {}

    void run() {
        file_.reserve(static_cast<size_t>(std::count(text_.begin(), text_.end(), '=')));
        for (size_t at = 0; at < text_.size();) {
            const size_t end = lineEnd(at);
            const size_t next = afterBreak(end);
            ++line_number_;
            line(ascii::trimLeft(text_.substr(at, end - at)), text_.substr(at, next - at));
            at = next;
        }
        file_.trailing_comment = takeComment();
    }

private:
    size_t lineEnd(size_t at) const {
        const size_t end = has_cr_ ? text_.find_first_of("\r\n", at) : text_.find('\n', at);
        return end == std::string_view::npos ? text_.size() : end;
    }
    size_t afterBreak(size_t end) const {
        if (end == text_.size()) return end;
        const bool two = text_[end] == '\r' && end + 1 < text_.size() && text_[end + 1] == '\n';
        return end + (two ? 2 : 1);
    }

    void line(std::string_view content, std::string_view raw) {
        if (content.empty() || content[0] == ';' || content[0] == '#') return comment(raw);
        const char first = content[0];
        if (!ascii::isAlpha(first) && !ascii::isDigit(first) && !ascii::isPunct(first)) return;
        if (first == '[') return header(content);
        keyAndValue(content);
    }

    /// Extends the pending comment; only where a skipped line stands between two comment lines do
    /// they need memory of their own.
    void comment(std::string_view raw) {
        if (joined_.empty() &&
            (pending_.empty() || pending_.data() + pending_.size() == raw.data())) {
            pending_ = {pending_.empty() ? raw.data() : pending_.data(),
                        pending_.size() + raw.size()};
            return;
        }
        if (joined_.empty()) joined_ = pending_;
        joined_ += raw;
    }

    Text takeComment() {
        Text result = joined_.empty() ? Text::borrowed(pending_) : Text::copied(joined_);
        pending_ = {};
        joined_.clear();
        return result;
    }

    void header(std::string_view content) {
        const size_t close = content.find(']');
        if (close == std::string_view::npos) {
            ErrorA(22,
                   "Syntax error on line %d while parsing configuration file %s: \"]\" expected.",
                   line_number_, file_.path.c_str());
            return;
        }
        section_ = &file_.obtain(Text::borrowed(content.substr(1, close - 1)));
        if (Text text = takeComment(); !text.empty()) section_->comment = std::move(text);
    }

    void keyAndValue(std::string_view content) {
        const size_t equals = content.find('=');
        if (equals == std::string_view::npos) {
            ErrorA(22,
                   "Syntax error on line %d while parsing configuration file %s: \"=\" expected.",
                   line_number_, file_.path.c_str());
            return;
        }
        const std::string_view key = ascii::trimRight(content.substr(0, equals));
        if (key.empty()) {
            ErrorA(22, "Syntax error on line %d while parsing configuration file %s", line_number_,
                   file_.path.c_str());
            return;
        }
        const std::string_view value = ascii::trim(content.substr(equals + 1));
        file_.push(*section_, Text::borrowed(key), Text::borrowed(value), takeComment());
    }

    File &file_;
    std::string_view text_;
    Section *section_;
    const bool has_cr_;
    int line_number_ = 0;
    std::string_view pending_;  // the comment lines met since the last section or entry
    String joined_;             // the same once they do not stand side by side
};

}  // namespace

void parse(File &file, std::string_view text) {
    if (const size_t nul = text.find('\0'); nul != std::string_view::npos)
        text = text.substr(0, nul);
    Parser(file, text).run();
}

}  // namespace vex::config
