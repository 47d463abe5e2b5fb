#include "policy/ClassSet.h"

#include <algorithm>

#include "metadata/IMetaDataContext.h"

void ClassSet::insert(const char16_t* text) {
    if (text == nullptr) {
        return;
    }
    WCharSet::insert(text);
    (text[0] == u'[' ? anyQualified : anyPlain) = true;
}

void ClassSet::clear() {
    WCharSet::clear();
    anyQualified = anyPlain = false;
}

bool isClassWithAssembly(const char16_t* s) {
    if (s == nullptr || s[0] != u'[') {
        return false;
    }
    const char16_t* close = strchr_u16(s, u']');
    return close != nullptr && close[1] != 0;
}

std::u16string makeFullySpecifiedClassString(const char16_t* assembly, const char16_t* className) {
    std::u16string result;
    if (assembly != nullptr && *assembly != 0) {
        result.append(u"[").append(assembly).append(u"]");
    }
    if (className != nullptr) {
        result.append(className);
    }
    return result;
}

std::u16string_view qualifiedName(const char16_t* assembly, const char16_t* className, char16_t* buffer,
                                  size_t capacity) {
    const size_t assemblyLength = assembly != nullptr ? strlen_u16(assembly) : 0;
    const size_t classLength = className != nullptr ? strlen_u16(className) : 0;
    if (assemblyLength + classLength + 2 > capacity) {
        return {};
    }
    size_t length = 0;
    if (assemblyLength != 0) {
        buffer[length++] = u'[';
        std::copy_n(assembly, assemblyLength, buffer + length);
        length += assemblyLength;
        buffer[length++] = u']';
    }
    std::copy_n(className, classLength, buffer + length);
    return {buffer, length + classLength};
}

namespace {

// Appends text to buffer at length, never past the last unit before the end.
void appendBounded(char16_t* buffer, size_t& length, const char16_t* text) {
    for (; text != nullptr && *text != 0 && length + 1 < IMetaDataContext::kNameSize; ++text) {
        buffer[length++] = *text;
    }
    buffer[length] = 0;
}

}  // namespace

size_t qualifiedKey(const char16_t* assembly, const char16_t* className,
                    char16_t (&buffer)[IMetaDataContext::kNameSize]) {
    size_t length = 0;
    appendBounded(buffer, length, u"[");
    appendBounded(buffer, length, assembly);
    appendBounded(buffer, length, u"]");
    appendBounded(buffer, length, className);
    return length;
}

bool findInClassSets(ClassSet& set, const char16_t* assembly, const char16_t* className) {
    if (set.contains(className)) {
        return true;
    }
    if (!set.hasQualified()) {
        return false;
    }
    char16_t qualified[IMetaDataContext::kNameSize];
    qualifiedKey(assembly, className, qualified);
    return set.contains(qualified);
}

bool ClassSet::mayHoldClassOf(const char16_t* assembly) const {
    if (anyPlain) {
        return true;
    }
    // The key findInClassSets builds, without the class name: its beginning.
    char16_t prefix[IMetaDataContext::kNameSize];
    qualifiedKey(assembly, u"", prefix);
    return contains(prefix);
}

bool classAgrees(const char16_t* member, const char16_t* assembly, const char16_t* className) {
    if (WCharSet::agrees(member, className)) {
        return true;
    }
    if (member[0] != u'[') {
        return false;
    }
    char16_t qualified[IMetaDataContext::kNameSize];
    qualifiedKey(assembly, className, qualified);
    return WCharSet::agrees(member, qualified);
}

bool mayNameClassOf(const char16_t* member, const char16_t* assembly) {
    if (member[0] != u'[') {
        return true;
    }
    char16_t prefix[IMetaDataContext::kNameSize];
    qualifiedKey(assembly, u"", prefix);
    return WCharSet::agrees(member, prefix);
}
