// The value-tree builder over yajl's event parser, the lookup and free routines, and the walk of
// a configuration document (ProcessJSONData).
//
// The builder mirrors yajl's own tree builder step for step (same tree, same errors), with two
// differences that matter on hostile input: the tree is freed without recursion, and composite
// arrays grow geometrically, so a long array costs linear time.
#include "tola_json_parser.h"

#include <yajl/yajl_parse.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tola_agent.h"
#include "tola_log.h"

namespace {

int reportError(context_t* ctx, int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
int reportError(context_t* ctx, int code, const char* format, ...) {
    if (ctx != nullptr && ctx->errbuf != nullptr && ctx->errbuf_size > 0) {
        va_list args;
        va_start(args, format);
        vsnprintf(ctx->errbuf, ctx->errbuf_size, format, args);
        va_end(args);
    }
    return code;
}

yajl_val newValue(yajl_type type) {
    yajl_val v = static_cast<yajl_val>(calloc(1, sizeof(yajl_val_s)));
    if (v != nullptr) {
        v->type = type;
    }
    return v;
}

// Capacity is implied by the length: the arrays are grown to the next power of two whenever the
// length reaches one, so that appending n members costs O(n) overall.
bool needsGrowth(size_t len) {
    return len == 0 || (len & (len - 1)) == 0;
}

int objectAddKeyValue(yajl_val obj, char* key, yajl_val value) {
    size_t len = obj->u.object.len;
    if (needsGrowth(len)) {
        size_t capacity = len == 0 ? 1 : len * 2;
        const char** keys =
            static_cast<const char**>(realloc(obj->u.object.keys, capacity * sizeof(const char*)));
        if (keys == nullptr) {
            return ENOMEM;
        }
        obj->u.object.keys = keys;
        yajl_val* values = static_cast<yajl_val*>(realloc(obj->u.object.values, capacity * sizeof(yajl_val)));
        if (values == nullptr) {
            return ENOMEM;
        }
        obj->u.object.values = values;
    }
    obj->u.object.keys[len] = key;
    obj->u.object.values[len] = value;
    obj->u.object.len = len + 1;
    return 0;
}

int arrayAddValue(yajl_val arr, yajl_val value) {
    size_t len = arr->u.array.len;
    if (needsGrowth(len)) {
        size_t capacity = len == 0 ? 1 : len * 2;
        yajl_val* values = static_cast<yajl_val*>(realloc(arr->u.array.values, capacity * sizeof(yajl_val)));
        if (values == nullptr) {
            return ENOMEM;
        }
        arr->u.array.values = values;
    }
    arr->u.array.values[len] = value;
    arr->u.array.len = len + 1;
    return 0;
}

// The integer of a number's text, as yajl reads it: an optional sign, then digits only. A
// fraction or an exponent makes the text no integer, and so does a value beyond the 64-bit range;
// either way the result saturates towards the sign (LLONG_MAX, or LLONG_MIN after a "-") and
// `valid` is cleared. So "1.5" and "1e3" give LLONG_MAX, "-2.5" gives LLONG_MIN, never a prefix.
long long parseInteger(const char* text, size_t len, bool& valid) {
    const char* p = text;
    const char* end = text + len;
    bool negative = false;
    if (p < end && *p == '-') {
        negative = true;
        ++p;
    }
    if (p < end && *p == '+') {
        ++p;
    }
    // Digits accumulate as a positive value and the sign applies at the end, so the magnitude
    // of LLONG_MIN itself is out of range, as it is for yajl.
    unsigned long long magnitude = 0;
    for (; p < end; ++p) {
        if (*p < '0' || *p > '9' ||
            magnitude > (static_cast<unsigned long long>(LLONG_MAX) - (*p - '0')) / 10) {
            valid = false;
            return negative ? LLONG_MIN : LLONG_MAX;
        }
        magnitude = magnitude * 10 + static_cast<unsigned long long>(*p - '0');
    }
    valid = true;
    long long value = static_cast<long long>(magnitude);
    return negative ? -value : value;
}

// ---- yajl callbacks: each returns 0 to stop the parse when the builder fails ----

int addOrFree(context_t* ctx, yajl_val v) {
    if (v == nullptr) {
        reportError(ctx, ENOMEM, "Out of memory");
        return 0;
    }
    if (context_add_value(ctx, v) != 0) {
        tola_tree_free(v);
        return 0;
    }
    return 1;
}

int onNull(void* c) {
    return addOrFree(static_cast<context_t*>(c), newValue(yajl_t_null));
}

int onBoolean(void* c, int value) {
    return addOrFree(static_cast<context_t*>(c), newValue(value ? yajl_t_true : yajl_t_false));
}

int onNumber(void* c, const char* text, size_t len) {
    context_t* ctx = static_cast<context_t*>(c);
    yajl_val v = newValue(yajl_t_number);
    if (v == nullptr) {
        return addOrFree(ctx, v);
    }
    v->u.number.r = static_cast<char*>(malloc(len + 1));
    if (v->u.number.r == nullptr) {
        free(v);
        return addOrFree(ctx, nullptr);
    }
    memcpy(v->u.number.r, text, len);
    v->u.number.r[len] = '\0';
    v->u.number.flags = 0;

    bool integer = true;
    v->u.number.i = parseInteger(v->u.number.r, len, integer);
    if (integer) {
        v->u.number.flags |= YAJL_NUMBER_INT_VALID;
    }
    errno = 0;
    char* end = nullptr;
    v->u.number.d = strtod(v->u.number.r, &end);
    if (errno == 0 && end != nullptr && *end == '\0') {
        v->u.number.flags |= YAJL_NUMBER_DOUBLE_VALID;
    }
    return addOrFree(ctx, v);
}

int onString(void* c, const unsigned char* text, size_t len) {
    context_t* ctx = static_cast<context_t*>(c);
    yajl_val v = newValue(yajl_t_string);
    if (v == nullptr) {
        return addOrFree(ctx, v);
    }
    v->u.string = static_cast<char*>(malloc(len + 1));
    if (v->u.string == nullptr) {
        free(v);
        return addOrFree(ctx, nullptr);
    }
    memcpy(v->u.string, text, len);
    v->u.string[len] = '\0';
    return addOrFree(ctx, v);
}

int onStartComposite(context_t* ctx, yajl_type type) {
    yajl_val v = newValue(type);
    if (v == nullptr) {
        reportError(ctx, ENOMEM, "Out of memory");
        return 0;
    }
    if (context_push(ctx, v) != 0) {
        tola_tree_free(v);
        return 0;
    }
    return 1;
}

int onEndComposite(context_t* ctx) {
    yajl_val v = context_pop(ctx);
    if (v == nullptr) {
        return 0;
    }
    return addOrFree(ctx, v);
}

int onStartMap(void* c) {
    return onStartComposite(static_cast<context_t*>(c), yajl_t_object);
}
int onStartArray(void* c) {
    return onStartComposite(static_cast<context_t*>(c), yajl_t_array);
}
int onEndMap(void* c) {
    return onEndComposite(static_cast<context_t*>(c));
}
int onEndArray(void* c) {
    return onEndComposite(static_cast<context_t*>(c));
}

const yajl_callbacks kCallbacks = {
    onNull,
    onBoolean,
    nullptr /* integer */,
    nullptr /* double */,
    onNumber,
    onString,
    onStartMap,
    onString /* map key: a string value that becomes the pending key */,
    onEndMap,
    onStartArray,
    onEndArray,
};

// Builds the tree of text into ctx (ctx->root is the result).
void buildTree(context_t* ctx, const std::string& text) {
    yajl_handle handle = yajl_alloc(&kCallbacks, nullptr, ctx);
    if (handle == nullptr) {
        return;
    }
    yajl_config(handle, yajl_allow_comments, 1);
    yajl_config(handle, yajl_dont_validate_strings, 0);  // UTF-8 checked
    // One call over the whole text; its status is not consulted and no completion call is
    // made: a document counts only if its root value was completed.
    (void)yajl_parse(handle, reinterpret_cast<const unsigned char*>(text.data()), text.size());
    yajl_free(handle);
    context_clear(ctx);
}

}  // namespace

int context_push(context_t* ctx, yajl_val v) {
    if (ctx == nullptr) {
        return EINVAL;
    }
    if (ctx->stack != nullptr && !tola_is_kind(v, yajl_t_object) && !tola_is_kind(v, yajl_t_array)) {
        return reportError(ctx, EINVAL,
                           "(ctx->stack == __null) || (((v) != __null) && ((v)->type == yajl_t_object)) || "
                           "(((v) != __null) && ((v)->type == yajl_t_array ))");
    }
    if (ctx->depth >= TOLA_JSON_MAX_DEPTH) {
        return reportError(ctx, EINVAL, "context_push: nesting deeper than %zu", TOLA_JSON_MAX_DEPTH);
    }
    stack_elem_t* elem = static_cast<stack_elem_t*>(calloc(1, sizeof(stack_elem_t)));
    if (elem == nullptr) {
        return reportError(ctx, ENOMEM, "Out of memory");
    }
    elem->key = nullptr;
    elem->value = v;
    elem->next = ctx->stack;
    ctx->stack = elem;
    ++ctx->depth;
    return 0;
}

yajl_val context_pop(context_t* ctx) {
    if (ctx == nullptr) {
        return nullptr;
    }
    if (ctx->stack == nullptr) {
        reportError(ctx, EINVAL, "context_pop: Bottom of stack reached prematurely");
        return nullptr;
    }
    stack_elem_t* elem = ctx->stack;
    ctx->stack = elem->next;
    --ctx->depth;
    yajl_val v = elem->value;
    free(elem->key);  // a key left pending when its object closed (cannot happen with yajl)
    free(elem);
    return v;
}

int context_add_value(context_t* ctx, yajl_val v) {
    if (ctx == nullptr) {
        return EINVAL;
    }
    if (v == nullptr) {
        return reportError(ctx, EINVAL, "v != __null");
    }
    if (ctx->stack == nullptr) {
        if (ctx->root != nullptr) {
            return reportError(ctx, EINVAL, "ctx->root == __null");
        }
        ctx->root = v;
        return 0;
    }
    yajl_val top = ctx->stack->value;
    if (tola_is_kind(top, yajl_t_object)) {
        if (ctx->stack->key == nullptr) {
            if (v->type != yajl_t_string) {
                return reportError(ctx, EINVAL, "context_add_value: Object key is not a string (%#04x)",
                                   static_cast<unsigned>(v->type));
            }
            // The key's text moves to the stack entry; the node itself is no longer needed.
            ctx->stack->key = v->u.string;
            v->u.string = nullptr;
            free(v);
            return 0;
        }
        char* key = ctx->stack->key;
        if (objectAddKeyValue(top, key, v) != 0) {
            return reportError(ctx, ENOMEM, "Out of memory");
        }
        ctx->stack->key = nullptr;
        return 0;
    }
    if (tola_is_kind(top, yajl_t_array)) {
        if (arrayAddValue(top, v) != 0) {
            return reportError(ctx, ENOMEM, "Out of memory");
        }
        return 0;
    }
    return reportError(ctx, EINVAL,
                       "context_add_value: Cannot add value to a value of type %#04x (not a composite type)",
                       top != nullptr ? static_cast<unsigned>(top->type) : 0u);
}

void context_clear(context_t* ctx) {
    if (ctx == nullptr) {
        return;
    }
    ctx->depth = 0;
    while (ctx->stack != nullptr) {
        stack_elem_t* elem = ctx->stack;
        ctx->stack = elem->next;
        free(elem->key);
        tola_tree_free(elem->value);
        free(elem);
    }
}

yajl_val tola_tree_parse(const std::string& text) {
    context_t ctx{};
    buildTree(&ctx, text);
    return ctx.root;
}

yajl_val tola_tree_get(yajl_val n, const char** path, yajl_type kind) {
    if (path == nullptr) {
        return nullptr;
    }
    while (n != nullptr && *path != nullptr) {
        if (n->type != yajl_t_object) {
            return nullptr;
        }
        size_t len = n->u.object.len;
        size_t i = 0;
        for (; i < len; ++i) {
            if (strcmp(*path, n->u.object.keys[i]) == 0) {
                n = n->u.object.values[i];
                break;
            }
        }
        if (i == len) {
            return nullptr;
        }
        ++path;
    }
    if (n != nullptr && kind != yajl_t_any && kind != n->type) {
        n = nullptr;
    }
    return n;
}

void tola_tree_free(yajl_val v) {
    if (v == nullptr) {
        return;
    }
    std::vector<yajl_val> pending;
    pending.push_back(v);
    while (!pending.empty()) {
        yajl_val node = pending.back();
        pending.pop_back();
        if (node == nullptr) {
            continue;
        }
        switch (node->type) {
            case yajl_t_string:
                free(node->u.string);
                break;
            case yajl_t_number:
                free(node->u.number.r);
                break;
            case yajl_t_object:
                for (size_t i = 0; i < node->u.object.len; ++i) {
                    free(const_cast<char*>(node->u.object.keys[i]));
                    pending.push_back(node->u.object.values[i]);
                }
                free(node->u.object.keys);
                free(node->u.object.values);
                break;
            case yajl_t_array:
                for (size_t i = 0; i < node->u.array.len; ++i) {
                    pending.push_back(node->u.array.values[i]);
                }
                free(node->u.array.values);
                break;
            default:
                break;
        }
        free(node);
    }
}

// ---- TOLAJSONParser ------------------------------------------------------------------------

TOLAJSONParser::TOLAJSONParser(TOLAAgent* agent) : mAgent(agent) {}
TOLAJSONParser::TOLAJSONParser(TOLAApp* app) : mApp(app) {}

int TOLAJSONParser::ProcessJSONData(const std::string& text) {
    FnTrace trace("int TOLAJSONParser::ProcessJSONData(const std::string&)");
    context_t ctx{};
    ctx.agent = mAgent;
    buildTree(&ctx, text);

    yajl_val root = ctx.root;
    int result = 1;
    if (tola_array_len(root) > 0) {
        result = 0;
        bool entrySucceeded = false;
        for (size_t i = 0; i < root->u.array.len && result == 0; ++i) {
            yajl_val element = root->u.array.values[i];
            const char* path[] = {"AccessControlSettings", nullptr};
            yajl_val acl = tola_tree_get(element, path, yajl_t_object);
            if (acl == nullptr) {
                result = handleCompleteJSONData(element, &ctx);
                continue;
            }
            // An element with access-control entries is handled for those alone.
            if (acl->u.object.len == 0) {
                if (i == 0) {
                    result = 1;
                }
                continue;
            }
            for (size_t m = 0; m < acl->u.object.len; ++m) {
                yajl_val entry = acl->u.object.values[m];
                if (tola_is_kind(entry, yajl_t_object)) {
                    result = handleAccessControlEntryInfo(acl->u.object.keys[m], entry, &ctx);
                    if (result != 0) {
                        break;
                    }
                    entrySucceeded = true;
                } else if (i == 0 && !entrySucceeded) {
                    result = 1;
                    break;
                }
            }
        }
    }
    tola_tree_free(root);
    return trace.Returning(result);
}
