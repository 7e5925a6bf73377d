#include "yajl_reference.h"

#include <yajl/yajl_tree.h>

ReferenceNumber yajlReferenceNumber(const std::string& text) {
    ReferenceNumber out;
    char error[128];
    yajl_val root = yajl_tree_parse(("[" + text + "]").c_str(), error, sizeof error);
    if (YAJL_IS_ARRAY(root) && root->u.array.len == 1 && YAJL_IS_NUMBER(root->u.array.values[0])) {
        yajl_val n = root->u.array.values[0];
        out.parsed = true;
        out.integer = n->u.number.i;
        out.value = n->u.number.d;
        out.integerValid = (n->u.number.flags & YAJL_NUMBER_INT_VALID) != 0;
        out.doubleValid = (n->u.number.flags & YAJL_NUMBER_DOUBLE_VALID) != 0;
    }
    yajl_tree_free(root);
    return out;
}
