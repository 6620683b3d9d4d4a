#include "SpaceLens/EscapedPath.hpp"

#include "Support/FileURL.hpp"
#include "Support/Json.hpp"

namespace unbulk {

void EscapedPath::assign(std::string_view path) {
    path_.assign(path);
    plain_ = json::isPlain(path);
    json_.clear();
    if (plain_) json::appendStringContent(json_, path);
    // A percent-encoded path is plain: only its slashes change.
    url_.assign("file:\\/\\/");
    scratch_.clear();
    appendPercentEncodedPath(scratch_, path);
    json::appendStringContent(url_, scratch_);
}

void EscapedPath::append(std::string_view name) {
    if (path_.empty() || path_.back() != '/') {
        path_ += '/';
        if (plain_) json_ += "\\/";
        url_ += "\\/";
    }
    path_ += name;
    plain_ = plain_ && json::isPlain(name);
    if (plain_) json::appendStringContent(json_, name);
    // Percent-encoding goes byte by byte, so the URL is extended whatever
    // the name holds.
    scratch_.clear();
    appendPercentEncodedPath(scratch_, name);
    json::appendStringContent(url_, scratch_);
}

void EscapedPath::restore(const Mark& mark) {
    path_.resize(mark.path);
    json_.resize(mark.json);
    url_.resize(mark.url);
    plain_ = mark.plain;
}

void EscapedPath::appendJson(std::string& out) const {
    if (plain_) {
        out += json_;
    } else {
        json::appendStringContent(out, path_);
    }
}

void EscapedPath::appendUrlJson(std::string& out, bool isDirectory) const {
    out += url_;
    if (isDirectory && path_ != "/") out += "\\/";
}

} // namespace unbulk
