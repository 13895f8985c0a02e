#include "acl/short_text.h"

#include <cstdlib>

#include "acl/layout.h"

using namespace acl_layout;

namespace {

struct parsed_entry {
    std::uint32_t tag = 0;
    std::uint32_t permissions = 0;
    std::uint32_t id = TVO_ACL_UNDEFINED_ID;
};

struct permission_letter {
    char letter;
    std::uint32_t bit;
};
constexpr permission_letter PERMISSION_LETTERS[] = {
    {'r', TVO_ACL_READ},
    {'w', TVO_ACL_WRITE},
    {'x', TVO_ACL_EXECUTE},
    {'-', 0},
};

// Reads one entry after the other: tag ":" [id] ":" permissions, separated by ",".  Each
// step returns null, or the text that says why the entry is refused.
class short_text {
public:
    explicit short_text(const char *text) : at_(text) {}

    [[nodiscard]] bool done() const { return *at_ == '\0'; }

    [[nodiscard]] const char *next(parsed_entry &entry) {
        if (const char *refusal = tag(entry))
            return refusal;
        if (const char *refusal = colon())
            return refusal;
        if (const char *refusal = qualifier(entry))
            return refusal;
        if (const char *refusal = colon())
            return refusal;
        if (const char *refusal = basic_once(entry))
            return refusal;
        if (const char *refusal = permissions(entry))
            return refusal;
        return end();
    }

private:
    const char *tag(parsed_entry &entry) {
        switch (*at_) {
        case 'u':
            entry.tag = TVO_ACL_USER_OBJ;
            break;
        case 'g':
            entry.tag = TVO_ACL_GROUP_OBJ;
            break;
        case 'o':
            entry.tag = TVO_ACL_OTHER;
            break;
        default:
            return "Invalid ACL tag character";
        }
        ++at_;
        return nullptr;
    }

    const char *colon() {
        if (*at_ != ':')
            return "Expecting ':'";
        ++at_;
        return nullptr;
    }

    const char *qualifier(parsed_entry &entry) {
        if (*at_ < '0' || *at_ > '9')
            return nullptr;
        if (entry.tag == TVO_ACL_OTHER)
            return "Qualifier not allowed here";
        char *end = nullptr;
        errno = 0;
        const unsigned long id = std::strtoul(at_, &end, 10);
        if (errno != 0 || id > UINT32_MAX)
            return "Qualifier conversion failed";
        at_ = end;
        entry.tag = entry.tag == TVO_ACL_USER_OBJ ? TVO_ACL_USER : TVO_ACL_GROUP;
        entry.id = static_cast<std::uint32_t>(id);
        return nullptr;
    }

    const char *basic_once(parsed_entry &entry) {
        if (is_named(entry.tag))
            return nullptr;
        const std::uint32_t bit = 1U << entry.tag;
        if ((basic_seen_ & bit) != 0)
            return "Basic permission defined more than once";
        basic_seen_ |= bit;
        return nullptr;
    }

    const char *permissions(parsed_entry &entry) {
        for (;; ++at_) {
            const permission_letter *known = find_letter(*at_);
            if (!known)
                return nullptr;
            if ((entry.permissions & known->bit) != 0)
                return "ACL permission repeated";
            entry.permissions |= known->bit;
        }
    }

    const char *end() {
        if (*at_ == ',') {
            ++at_;
            return nullptr;
        }
        return *at_ == '\0' ? nullptr : "Invalid ACL permission character";
    }

    static const permission_letter *find_letter(char letter) {
        for (const permission_letter &each : PERMISSION_LETTERS)
            if (each.letter == letter)
                return &each;
        return nullptr;
    }

    const char *at_;
    std::uint32_t basic_seen_ = 0;  // one bit for each tag
};

int append(tvo_acl_ptr &acl, const parsed_entry &parsed) {
    tvo_acl *raw = acl.release();
    tvo_acl_entry *entry = nullptr;
    const int rc = tvo_acl_create_entry(&raw, &entry);
    acl.reset(raw);  // the list may have moved
    if (rc == 0) {
        store(*entry, parsed.tag, parsed.permissions);
        store_qualifier(*entry, parsed.id);
    }
    return rc;
}

// Fills the list.  Returns null, or why it failed, with errno set.
const char *parse(tvo_acl_ptr &acl, const char *text) {
    for (short_text rest(text); !rest.done();) {
        parsed_entry entry;
        if (const char *refusal = rest.next(entry)) {
            errno = EINVAL;
            return refusal;
        }
        if (append(acl, entry) != 0)
            return "ACL entry creation failed";
    }
    return nullptr;
}

}  // namespace

int tvo_acl_from_short_text(tvo_acl **acl, const char *text, const char **message) {
    const char *ignored = nullptr;
    const char *&outcome = message ? *message : ignored;
    if (acl)
        *acl = nullptr;
    if (!acl || !text) {
        outcome = "NULL pointer argument[s]";
        return fail(EINVAL);
    }
    tvo_acl_ptr list(tvo_acl_init(0));
    if (!list) {
        outcome = "ACL initialization failed";
        return fail(ENOMEM);
    }
    if (const char *failure = parse(list, text)) {
        const int err = errno;
        list.reset();
        outcome = failure;
        return fail(err);
    }
    outcome = "Ok";
    *acl = list.release();
    return 0;
}
