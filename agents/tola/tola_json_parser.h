// The agent's JSON reader: a value tree built by the agent's own builder on top of yajl's event
// parser, the lookup and free routines over it, and TOLAJSONParser, which walks a configuration
// document group by group into the settings object (and, for TOLAApp, reads the portal's answers).
//
// The node kinds keep the agent's own codes (string 1, number 2, object 4, array 5, true 6,
// false 7, null 8; 9 means "any kind" in a lookup). They differ from those of <yajl/yajl_tree.h>,
// which must not be included next to this header.
#pragma once

#include <cstddef>
#include <string>

class TOLAAgent;
class TOLAApp;
struct sys_router_app_t;

typedef enum {
    yajl_t_string = 1,
    yajl_t_number = 2,
    yajl_t_object = 4,
    yajl_t_array = 5,
    yajl_t_true = 6,
    yajl_t_false = 7,
    yajl_t_null = 8,
    yajl_t_any = 9,
} yajl_type;

// Flags of a number node: which of its parsed values can be trusted.
#define YAJL_NUMBER_INT_VALID 0x01
#define YAJL_NUMBER_DOUBLE_VALID 0x02

typedef struct yajl_val_s* yajl_val;

// One node of the value tree. Owned by the tree; released with tola_tree_free on the root.
struct yajl_val_s {
    yajl_type type;
    union {
        char* string;  // yajl_t_string: NUL-terminated (text after an escaped \u0000 is cut)
        struct {
            long long i;  // saturated at LLONG_MIN/LLONG_MAX when out of range
            double d;
            char* r;  // the number's text as it stood in the document
            unsigned int flags;
        } number;
        struct {
            const char** keys;  // keys[i] names values[i]; document order, duplicates kept
            yajl_val* values;
            size_t len;
        } object;
        struct {
            yajl_val* values;
            size_t len;
        } array;
    } u;
};

// ---- Node accessors (null-safe) ----------------------------------------------------------
// true when v is a node of the given kind (yajl_t_any matches every node).
inline bool tola_is_kind(yajl_val v, yajl_type kind) {
    return v != nullptr && (kind == yajl_t_any || v->type == kind);
}
// The text of a string node, else null.
inline const char* tola_string(yajl_val v) {
    return tola_is_kind(v, yajl_t_string) ? v->u.string : nullptr;
}
// The integer of a number node (saturated), else 0.
inline long long tola_integer(yajl_val v) {
    return tola_is_kind(v, yajl_t_number) ? v->u.number.i : 0;
}
// Member count of an object node, else 0; key and value of member i (null when out of range).
inline size_t tola_object_len(yajl_val v) {
    return tola_is_kind(v, yajl_t_object) ? v->u.object.len : 0;
}
inline const char* tola_object_key(yajl_val v, size_t i) {
    return i < tola_object_len(v) ? v->u.object.keys[i] : nullptr;
}
inline yajl_val tola_object_value(yajl_val v, size_t i) {
    return i < tola_object_len(v) ? v->u.object.values[i] : nullptr;
}
// Element count of an array node, else 0; element i (null when out of range).
inline size_t tola_array_len(yajl_val v) {
    return tola_is_kind(v, yajl_t_array) ? v->u.array.len : 0;
}
inline yajl_val tola_array_item(yajl_val v, size_t i) {
    return i < tola_array_len(v) ? v->u.array.values[i] : nullptr;
}

// ---- Tree building -------------------------------------------------------------------------
// One open composite of the builder's stack; key is the object key awaiting its value.
struct stack_elem_t {
    char* key;
    yajl_val value;
    stack_elem_t* next;
};

// The tree-building context, also handed to the group handlers, which reach the settings object
// (the agent) only through it.
struct context_t {
    stack_elem_t* stack;
    yajl_val root;
    char* errbuf;  // when set, builder errors are written here (bounded by errbuf_size)
    size_t errbuf_size;
    TOLAAgent* agent;
    size_t depth;  // composites open on the stack
};

// The deepest nesting of objects and arrays the builder accepts. Real documents and answers nest
// four or five levels; deeper input is refused as malformed, so that a hostile text cannot make
// the agent hold one node per byte.
constexpr size_t TOLA_JSON_MAX_DEPTH = 64;

// Pushes an open object or array. 0 on success, ENOMEM, or EINVAL (also past TOLA_JSON_MAX_DEPTH).
int context_push(context_t* ctx, yajl_val v);
// Takes the top composite off the stack; null (with an error) on an empty stack.
yajl_val context_pop(context_t* ctx);
// Adds a finished value to the open composite, or makes it the root. 0 on success; on failure
// the caller still owns v.
int context_add_value(context_t* ctx, yajl_val v);
// Releases what is left on the stack after an interrupted parse (open composites, pending keys).
void context_clear(context_t* ctx);

// Parses text with yajl (comments allowed, UTF-8 checked) into a tree. One yajl_parse call;
// the parse status is not consulted: the result is the root if one was completed, else null.
yajl_val tola_tree_parse(const std::string& text);
// yajl_tree_get semantics: follows the null-terminated key path through objects (first member of
// each name), then returns the node if it has the wanted kind (yajl_t_any for every kind).
yajl_val tola_tree_get(yajl_val node, const char** path, yajl_type kind);
// The JSON text with the string value of every member whose name holds "Password", "Key" or
// "Answer" replaced by "********": what the debug log may show of a document or an answer.
// Text that is not JSON is masked as far as it reads like it.
std::string tola_mask_secrets(const std::string& text);
// Frees a whole tree without recursion (deep documents cannot exhaust the stack). Null is fine.
void tola_tree_free(yajl_val v);

// ---- Configuration document ----------------------------------------------------------------
// Runs the 17 group handlers over one element of the document's top-level array, in their fixed
// order; 0, or the first failing group's code.
int handleCompleteJSONData(yajl_val element, context_t* ctx);
// One access-control entry named by its key under "AccessControlSettings". Always 0.
int handleAccessControlEntryInfo(const char* name, yajl_val entry, context_t* ctx);

// Group handlers: each looks its group up in the element, fills the settings object and returns
// 0 or the group's code (the user text is set on the agent).
int handleBlockedDevicesInfo(yajl_val element, context_t* ctx);
int handleWhiteListedDevicesInfo(yajl_val element, context_t* ctx);
int handleWiFiNetworkSettingsInfo(yajl_val element, context_t* ctx);
int handleWiFiGuestNetworkSettingsInfo(yajl_val element, context_t* ctx);
int handleWiFiAdvancedSettingsInfo(yajl_val element, context_t* ctx);
int handleAdminPasswordSettingsInfo(yajl_val element, context_t* ctx);
int handleDevicePreferencesInfo(yajl_val element, context_t* ctx);
int handleUSBModePreferencesInfo(yajl_val devicePreferences, context_t* ctx);
int handleAudioPreferencesInfo(yajl_val devicePreferences, context_t* ctx);
int handleDisplaySettingsInfo(yajl_val devicePreferences, context_t* ctx);
int handleManualDNSSettingsInfo(yajl_val element, context_t* ctx);
int handleFirewallSettingsInfo(yajl_val element, context_t* ctx);
int handleMacfilterSettingsInfo(yajl_val element, context_t* ctx);
int handleLANSettingsInfo(yajl_val element, context_t* ctx);
int handleGPSSettingsInfo(yajl_val element, context_t* ctx);
int handleLogsInfo(yajl_val element, context_t* ctx);
int handleMobileNetworkSettingsInfo(yajl_val element, context_t* ctx);
int handlePortFilteringSettingsInfo(yajl_val element, context_t* ctx);
int handlePortFilterCustomApps(yajl_val apps, context_t* ctx);
int handlePortForwardingSettingsInfo(yajl_val element, context_t* ctx);
int handlePortForwardCustomApps(yajl_val apps, context_t* ctx);
int handleVornSharingSettingsInfo(yajl_val element, context_t* ctx);
// Built but in no sequence: a "ReservedIpSettings" group is not read from documents.
int handleReservedIpSettingsInfo(yajl_val element, context_t* ctx);
// Built but not called: "AccessControlSettings" is read by the walk in ProcessJSONData.
int handleAccessControlSettingsInfo(yajl_val element, context_t* ctx);

// true when a port-forwarding record is one of the predefined services as its switch adds it
// (the service's name, ports, protocol and port type), false for a custom application.
bool tola_is_predefined_forward_app(const sys_router_app_t& app);

class TOLAJSONParser {
  public:
    // For configuration documents: the handlers fill this agent's settings object.
    explicit TOLAJSONParser(TOLAAgent* agent);
    // For the portal's answers (check-in and key-and-URL).
    explicit TOLAJSONParser(TOLAApp* app);
    TOLAJSONParser(const TOLAJSONParser&) = delete;
    TOLAJSONParser& operator=(const TOLAJSONParser&) = delete;

    // Parses a configuration document and hands every element of its top-level array to the
    // handlers. 0 on success, a group's code, or 1 (no array, empty array, malformed text).
    int ProcessJSONData(const std::string& text);

    // The portal's answers (tola_json_checkin.cpp).
    bool ProcessCheckinResponse(std::string& response);
    bool ProcessSMS104CheckinResponse(const std::string& text, std::string& key, std::string& url);

  private:
    TOLAAgent* mAgent = nullptr;
    TOLAApp* mApp = nullptr;
};
