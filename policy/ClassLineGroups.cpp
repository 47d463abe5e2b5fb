#include "policy/ClassLineGroups.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "platform/MemoryPages.h"
#include "platform/Text16.h"
#include "policy/MethodMatcher.h"

namespace {

// Calls visit with 0 to count - 1 in the order of their decimal text.
template <typename Visit>
void inTextOrder(uint32_t count, Visit visit) {
    if (count == 0) {
        return;
    }
    visit(0u);
    const uint64_t last = count - 1;
    uint64_t number = 1;
    for (uint64_t visited = 1; visited < count; ++visited) {
        visit(static_cast<uint32_t>(number));
        if (number * 10 <= last) {
            number *= 10;
            continue;
        }
        if (number >= last) {
            number /= 10;
        }
        ++number;
        while (number % 10 == 0) {
            number /= 10;
        }
    }
}

}  // namespace

size_t ClassLineGroups::nameOf(uint32_t number, char16_t (&name)[kNameSize]) {
    char digits[12];
    const char* end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
    char16_t* at = std::copy(kNamePrefix.begin(), kNamePrefix.end(), name);
    at = std::copy(static_cast<const char*>(digits), end, at);
    *at = 0;
    return static_cast<size_t>(at - name);
}

ClassLineGroup* ClassLineGroups::add(uint32_t number, std::u16string_view className, std::u16string_view method) {
    const size_t classLength = className.size();
    if (classLength + 1 > std::numeric_limits<uint16_t>::max()) {
        return nullptr;
    }
    const bool oneMethod = !method.empty();
    const std::u16string_view methodName = MethodMatcher::ruleName(method);
    char16_t* room = text.allocate(classLength + 1 + (oneMethod ? methodName.size() + 1 : 0));
    *std::copy(className.begin(), className.end(), room) = 0;
    if (oneMethod) {
        *std::copy(methodName.begin(), methodName.end(), room + classLength + 1) = 0;
    }
    if (blocks.empty() || blocks.back().size() == kBlock) {
        std::vector<ClassLineGroup> block;
        if (blocks.empty()) {
            block.reserve(kBlock);
        } else {
            MemoryPages::reserve(block, kBlock);
        }
        blocks.push_back(std::move(block));
    }
    ClassLineGroup& added = blocks.back().emplace_back(room, number, static_cast<uint16_t>(classLength), oneMethod);
    ++count;
    return &added;
}

ClassLineGroup& ClassLineGroups::at(size_t index) {
    return blocks[index / kBlock][index % kBlock];
}

ClassLineGroup* ClassLineGroups::find(const char16_t* name) {
    if (count == 0 || name == nullptr) {
        return nullptr;
    }
    const std::u16string_view text(name);
    if (!text.starts_with(kNamePrefix) || text.size() == kNamePrefix.size() || text.size() > kNamePrefix.size() + 10) {
        return nullptr;
    }
    // The digits as the name gives them: no sign, no leading zero.
    const std::u16string_view digits = text.substr(kNamePrefix.size());
    if (digits.size() > 1 && digits[0] == u'0') {
        return nullptr;
    }
    uint64_t number = 0;
    for (char16_t unit : digits) {
        if (unit < u'0' || unit > u'9') {
            return nullptr;
        }
        number = number * 10 + static_cast<uint64_t>(unit - u'0');
    }
    if (number > std::numeric_limits<uint32_t>::max()) {
        return nullptr;
    }
    // Numbers rise with the place: the first place whose number is not below.
    size_t found = 0;
    for (size_t rest = count; rest > 0;) {
        const size_t half = rest / 2;
        if (at(found + half).getNumber() < number) {
            found += half + 1;
            rest -= half + 1;
        } else {
            rest = half;
        }
    }
    return found < count && at(found).getNumber() == number ? &at(found) : nullptr;
}

void ClassLineGroups::inNameOrder(const std::function<void(ClassLineGroup*)>& visit) {
    if (count == 0) {
        return;
    }
    const size_t numbers = at(count - 1).getNumber() + size_t{1};
    if (numbers == count) {
        // No number went to another group: each group's number is its index.
        inTextOrder(static_cast<uint32_t>(numbers), [&](uint32_t number) { visit(&at(number)); });
        return;
    }
    std::vector<ClassLineGroup*> byNumber;
    MemoryPages::reserve(byNumber, numbers);
    byNumber.resize(numbers, nullptr);
    for (std::vector<ClassLineGroup>& block : blocks) {
        for (ClassLineGroup& group : block) byNumber[group.getNumber()] = &group;
    }
    inTextOrder(static_cast<uint32_t>(numbers), [&](uint32_t number) {
        if (byNumber[number] != nullptr) visit(byNumber[number]);
    });
}
