// What is wrong with a configuration document, for `parse` and `validate`: the agent only says
// "code 1" for text it cannot read and ignores keys it does not know, which hides typing mistakes.
// Everything here reads the document; the agent's outcome is never changed.
#include <yajl/yajl_parse.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "devicectl.h"
#include "tola_json_parser.h"

namespace {

using devicectl::KeyGroup;
using devicectl::KeyRow;

// 1-based line and column (in characters, not bytes) of a byte offset.
std::pair<size_t, size_t> lineAndColumn(const std::string& text, size_t offset) {
    size_t line = 1, column = 1;
    for (size_t i = 0; i < offset && i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\n') {
            ++line;
            column = 1;
        } else if ((c & 0xc0) != 0x80) {
            ++column;
        }
    }
    return {line, column};
}

// yajl's verdict on the text with the agent's options: empty when it reads as JSON, else the
// error and the byte offset where it was found.
struct SyntaxError {
    std::string what;
    size_t offset = 0;
};
bool findSyntaxError(const std::string& text, SyntaxError& error) {
    yajl_handle handle = yajl_alloc(nullptr, nullptr, nullptr);
    if (handle == nullptr) {
        return false;
    }
    yajl_config(handle, yajl_allow_comments, 1);
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text.data());
    yajl_status status = yajl_parse(handle, bytes, text.size());
    bool atEnd = false;
    if (status == yajl_status_ok) {
        status = yajl_complete_parse(handle);
        atEnd = true;
    }
    bool failed = status != yajl_status_ok;
    if (failed) {
        unsigned char* message = yajl_get_error(handle, 0, bytes, text.size());
        error.what = message != nullptr ? reinterpret_cast<const char*>(message) : "parse error";
        yajl_free_error(handle, message);
        // Within the text yajl counts the offending byte as consumed; an early end is at the end.
        size_t consumed = yajl_get_bytes_consumed(handle);
        error.offset = atEnd ? text.size() : (consumed > 0 ? consumed - 1 : 0);
        const std::string prefix = "parse error: ";
        if (error.what.rfind(prefix, 0) == 0) {
            error.what.erase(0, prefix.size());
        }
        while (!error.what.empty() && std::isspace(static_cast<unsigned char>(error.what.back()))) {
            error.what.pop_back();
        }
    }
    yajl_free(handle);
    return failed;
}

const char* kindName(yajl_val v) {
    switch (v != nullptr ? v->type : yajl_t_null) {
        case yajl_t_string:
            return "a string";
        case yajl_t_number:
            return "a number";
        case yajl_t_object:
            return "an object";
        case yajl_t_array:
            return "an array";
        case yajl_t_true:
        case yajl_t_false:
            return "true/false";
        default:
            return "null";
    }
}

// A value as a person recognises it in the document (long texts shortened).
std::string shown(yajl_val v) {
    if (v == nullptr) {
        return "null";
    }
    switch (v->type) {
        case yajl_t_string: {
            std::string s = v->u.string;
            return s.size() > 60
                       ? "\"" + s.substr(0, 57) + "...\" (" + std::to_string(s.size()) + " characters)"
                       : "\"" + s + "\"";
        }
        case yajl_t_number:
            return v->u.number.r != nullptr ? v->u.number.r : "?";
        case yajl_t_object:
            return "{...}";
        case yajl_t_array:
            return "[" + std::to_string(v->u.array.len) + " elements]";
        case yajl_t_true:
            return "true";
        case yajl_t_false:
            return "false";
        default:
            return "null";
    }
}

size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t above = row[j];
            bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

class Explainer {
  public:
    explicit Explainer(const std::vector<KeyGroup>& catalogue) : mCatalogue(catalogue) {
        for (const KeyGroup& g : catalogue) {
            std::set<std::string>& keys = mKeys[g.path];
            for (const KeyRow& r : g.rows) {
                if (!r.name.empty() && r.name[0] != '(') {
                    keys.insert(r.name);
                }
            }
            // "A.B" and "A.B[]" make B a key of A.
            size_t dot = g.path.rfind('.');
            if (dot != std::string::npos) {
                std::string child = g.path.substr(dot + 1);
                if (child.size() > 2 && child.compare(child.size() - 2, 2, "[]") == 0) {
                    child.resize(child.size() - 2);
                }
                mKeys[g.path.substr(0, dot)].insert(child);
            } else {
                mTopLevel.insert(g.path);
            }
        }
    }

    void unknownKeys(yajl_val root) {
        for (size_t e = 0; e < tola_array_len(root); ++e) {
            yajl_val element = tola_array_item(root, e);
            for (size_t m = 0; m < tola_object_len(element); ++m) {
                std::string name = tola_object_key(element, m);
                yajl_val value = tola_object_value(element, m);
                if (mTopLevel.count(name) == 0) {
                    warnUnknown(name, mTopLevel, "the element");
                } else if (name == "AccessControlSettings") {
                    for (size_t a = 0; a < tola_object_len(value); ++a) {
                        walk(name, tola_object_value(value, a));
                    }
                } else if (tola_is_kind(value, yajl_t_array)) {
                    for (size_t i = 0; i < tola_array_len(value); ++i) {
                        walk(name, tola_array_item(value, i));
                    }
                } else {
                    walk(name, value);
                }
            }
        }
    }

    // The key a refusal came from: the one whose code and user text the agent reported, with the
    // value the document gave it.
    bool refusedKey(yajl_val root, int code, const std::string& message) {
        for (const KeyGroup& g : mCatalogue) {
            for (const KeyRow& r : g.rows) {
                bool wrongKind = r.typeCode == code && r.typeUser == message;
                bool badValue = r.valueCode == code && r.valueUser == message;
                if (!wrongKind && !badValue) {
                    continue;
                }
                std::string group = g.path.substr(0, g.path.find('.'));
                yajl_val value = nullptr;
                for (size_t e = 0; e < tola_array_len(root) && value == nullptr; ++e) {
                    value = find(tola_tree_get(tola_array_item(root, e), pathOf(group), yajl_t_any), r.name);
                }
                std::string where = g.path + "." + r.name + (value != nullptr ? " = " + shown(value) : "");
                if (wrongKind && (!badValue || kindDiffers(r, value))) {
                    std::fprintf(stderr, "error: %s: wrong JSON kind, %s where %s is expected\n",
                                 where.c_str(), kindName(value), r.json.c_str());
                } else {
                    std::fprintf(stderr, "error: %s: value not accepted; accepted: %s\n", where.c_str(),
                                 r.limits.c_str());
                }
                return true;
            }
        }
        return false;
    }

  private:
    static const char** pathOf(const std::string& group) {
        static thread_local std::string name;
        static thread_local const char* path[2];
        name = group;
        path[0] = name.c_str();
        path[1] = nullptr;
        return path;
    }

    // Whether the value's JSON kind is not the one the row takes (for rows whose two refusals share
    // a code and text).
    static bool kindDiffers(const KeyRow& r, yajl_val v) {
        if (r.json == "string") {
            return !tola_is_kind(v, yajl_t_string);
        }
        if (r.json == "number") {
            return !tola_is_kind(v, yajl_t_number);
        }
        return true;
    }

    // The first member named key anywhere under node, in document order.
    static yajl_val find(yajl_val node, const std::string& key) {
        for (size_t m = 0; m < tola_object_len(node); ++m) {
            if (key == tola_object_key(node, m)) {
                return tola_object_value(node, m);
            }
        }
        for (size_t m = 0; m < tola_object_len(node); ++m) {
            if (yajl_val found = find(tola_object_value(node, m), key)) {
                return found;
            }
        }
        for (size_t i = 0; i < tola_array_len(node); ++i) {
            if (yajl_val found = find(tola_array_item(node, i), key)) {
                return found;
            }
        }
        return nullptr;
    }

    void walk(const std::string& path, yajl_val object) {
        auto known = mKeys.find(path);
        if (known == mKeys.end() || !tola_is_kind(object, yajl_t_object)) {
            return;
        }
        for (size_t m = 0; m < tola_object_len(object); ++m) {
            std::string name = tola_object_key(object, m);
            yajl_val value = tola_object_value(object, m);
            if (known->second.count(name) == 0) {
                warnUnknown(name, known->second, path);
            } else if (tola_is_kind(value, yajl_t_object)) {
                walk(path + "." + name, value);
            } else if (tola_is_kind(value, yajl_t_array)) {
                for (size_t i = 0; i < tola_array_len(value); ++i) {
                    walk(path + "." + name + "[]", tola_array_item(value, i));
                }
            }
        }
    }

    static void warnUnknown(const std::string& name, const std::set<std::string>& known,
                            const std::string& where) {
        std::string best;
        size_t bestDistance = 0;
        for (const std::string& candidate : known) {
            size_t d = distance(name, candidate);
            if (best.empty() || d < bestDistance) {
                best = candidate;
                bestDistance = d;
            }
        }
        size_t allowed = std::max<size_t>(2, name.size() / 4);
        if (!best.empty() && bestDistance <= allowed) {
            std::fprintf(stderr, "warning: %s: unknown key, did you mean %s? (in %s; the agent ignores it)\n",
                         name.c_str(), best.c_str(), where.c_str());
        } else {
            std::fprintf(stderr, "warning: %s: unknown key (in %s; the agent ignores it)\n", name.c_str(),
                         where.c_str());
        }
    }

    const std::vector<KeyGroup>& mCatalogue;
    std::map<std::string, std::set<std::string>> mKeys;
    std::set<std::string> mTopLevel;
};

}  // namespace

void devicectl::explainDocument(const std::string& text, int code, const std::string& message) {
    yajl_val root = tola_tree_parse(text);
    SyntaxError syntax;
    bool badSyntax = findSyntaxError(text, syntax);
    if (root == nullptr) {
        if (badSyntax) {
            auto at = lineAndColumn(text, syntax.offset);
            std::fprintf(stderr, "error: line %zu, column %zu: %s\n", at.first, at.second,
                         syntax.what.c_str());
        } else {
            std::fprintf(stderr,
                         "error: the top level is not an array (a document is a JSON array of objects)\n");
        }
        return;
    }
    if (badSyntax) {
        // The agent reads the first complete value and ignores what follows it.
        auto at = lineAndColumn(text, syntax.offset);
        std::fprintf(stderr,
                     "warning: line %zu, column %zu: %s (the agent ignores the text after the first value)\n",
                     at.first, at.second, syntax.what.c_str());
    }
    if (!tola_is_kind(root, yajl_t_array)) {
        std::fprintf(stderr,
                     "error: the top level is %s, not an array (a document is a JSON array of objects)\n",
                     kindName(root));
    } else if (tola_array_len(root) == 0) {
        std::fprintf(stderr, "error: the top-level array is empty\n");
    } else {
        std::vector<KeyGroup> catalogue = keyCatalogue();
        Explainer explainer(catalogue);
        explainer.unknownKeys(root);
        const char* acl[] = {"AccessControlSettings", nullptr};
        if (code == 1 && tola_tree_get(tola_array_item(root, 0), acl, yajl_t_object) != nullptr) {
            std::fprintf(
                stderr,
                "error: the first element's AccessControlSettings is empty or its first entry is not an "
                "object\n");
        } else if (code != 0 && !explainer.refusedKey(root, code, message)) {
            std::fprintf(stderr, "error: refused by the check against the device (docs/validation.md): %s\n",
                         message.c_str());
        }
    }
    tola_tree_free(root);
}
