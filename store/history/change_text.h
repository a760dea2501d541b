// Writes the change of a record as the text that the history stores.
//
// The text is a JSON array: identifier, name, action, and an array of members. A member is an array of its name, its
// value before and after, and true when one of the values was cut; null stands for no value. Any thread may call the
// functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/records/records.h"

namespace store {

constexpr size_t kLongestRecorded = 1024;  // in bytes; a longer value is cut, which no name is

// Collects the members that a change gives other values.
class MemberChanges {
public:
    // Adds a text. Null: it has no value, because the record does not exist then. Of texts that are too long, the part
    // in which they differ is kept, with "..." for what is left out.
    void addText(const char* szName, const std::string* pBefore, const std::string* pAfter);

    // Adds a number or a flag, each as JSON text; "null" for no value.
    void addJson(const char* szName, const std::string& before, const std::string& after);

    // Adds the delegates if they differ, as a text of uids. Null: the node does not exist.
    void addDelegates(const std::vector<int64_t>* pBefore, const std::vector<int64_t>* pAfter);

    // Returns the members, separated by commas.
    const std::string& text() const
    {
        return m_text;
    }

    bool empty() const
    {
        return m_text.empty();
    }

private:
    void add(const char* szName, const std::string& before, const std::string& after, bool isCut);

    std::string m_text;
};

// Adds the fields in which the records differ, without the identifier and those that the store manages. Null: the
// record does not exist before or after the change; then those that are not at their default, but for the name, which
// the change contains by itself.
template <typename R>
void addFields(MemberChanges& members, const R* pBefore, const R* pAfter);

// A change of one record.
struct Change {
    const char* szKind;     // Kind<R>::kName
    int64_t id;             // of the record
    int64_t groupId;        // the group that it is below, after the change if it stays; 0 for an account
    std::string name;       // after the change if it stays
    const char* szAction;   // "created", "changed" or "deleted"
    bool isWhole;           // whether the record is created or deleted
    MemberChanges members;  // may be added to
};

// Returns the change between two records, of which one may be null, without the delegates.
template <typename R>
Change changeBetween(const R* pBefore, const R* pAfter);

// Appends the text for the history.
void appendText(const Change& change, std::string& text);

// Returns the text as a JSON string.
std::string quotedText(const std::string& text);

// Returns the name as a part of a path: with "\/" for a slash and "\\" for a backslash.
std::string pathPart(const std::string& name);

}  // namespace store
