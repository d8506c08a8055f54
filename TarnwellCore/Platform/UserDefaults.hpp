#pragma once

// The user's settings as the platform keeps them: values of a few kinds under keys, shared by all programs
// of the product. On macOS this is the system's own store; elsewhere a JSON file (JSONFileDefaults.hpp).

#include "TarnwellCore/Platform/Date.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarnwell {

/// Bytes whose meaning is known only to who stored them.
struct DataValue {
    std::string bytes;

    bool operator==(const DataValue&) const = default;
};

using UserDefaultsValue =
    std::variant<bool, std::int64_t, double, std::string, std::vector<std::string>, DataValue, Date>;

/// One store. Every function is safe from any thread. Keys are UTF-8; under any other nothing is stored.
///
/// A read finds the stored value; where none is stored, or the stored one is not of the asked kind and cannot
/// be converted to it, the registered default; otherwise nothing. Truth values and numbers convert into one
/// another (a fraction is cut off, what is too large becomes the largest integer), so do texts that read as a
/// number or as "yes", "no", "true" or "false". Nothing else converts.
class UserDefaults {
public:
    using Values = std::map<std::string, UserDefaultsValue, std::less<>>;
    /// What to store; nothing where a value is to be removed.
    using Changes = std::map<std::string, std::optional<UserDefaultsValue>, std::less<>>;

    /// The product's own store, the same object each time.
    static std::shared_ptr<UserDefaults> standard();
    /// A store of its own under this name, such as "com.example.tests".
    static std::shared_ptr<UserDefaults> suite(const std::string& name);

    UserDefaults() = default;
    virtual ~UserDefaults() = default;
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    /// Adds what reads find where nothing is stored. Never stored itself; forgotten with this object.
    virtual void registerDefaults(const Values& values);

    /// The stored value, else the registered one, as it is.
    std::optional<UserDefaultsValue> object(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const;
    /// Never NaN or infinite.
    std::optional<double> number(std::string_view key) const;
    /// Any bytes, as they were set.
    std::optional<std::string> string(std::string_view key) const;
    std::optional<std::vector<std::string>> stringArray(std::string_view key) const;
    std::optional<std::string> data(std::string_view key) const;
    std::optional<Date> date(std::string_view key) const;

    /// Stores a value. A number or date that is not finite cannot be stored and removes the key.
    void set(std::string_view key, UserDefaultsValue value);
    void remove(std::string_view key);
    /// What is to be stored for what is stored; nothing removes the value.
    using Change = std::function<std::optional<UserDefaultsValue>(const std::optional<UserDefaultsValue>&)>;
    /// Changes a value as it is stored now, in one step: what is called in turn by programs or threads loses
    /// nothing of one another. (On macOS programs have no turns: there the step is short, and no more.)
    /// What `change` throws is thrown on, and nothing is changed; it must not use this store, and may be
    /// called more than once. Otherwise as `apply`.
    virtual void change(std::string_view key, const Change& change);
    /// Stores and removes at once. Never fails: what the platform cannot store now is kept in memory, and
    /// tried again with the next change.
    void apply(Changes changes);

    /// Tries again to store what could not be stored; whether all changes are stored now.
    virtual bool synchronize() = 0;
    /// Why the last attempt to store failed, as a text for the user; nothing after one that did not fail, and
    /// where the platform does not tell.
    virtual std::optional<std::string> storingFailure() const { return std::nullopt; }

protected:
    /// The value for this key, when there is one of a known kind. May return registered values as well.
    virtual std::optional<UserDefaultsValue> storedValue(std::string_view key) const = 0;
    /// Stores finite values.
    virtual void store(Changes changes) = 0;
    /// A value that can be stored: nothing for a number or date that is not finite.
    static std::optional<UserDefaultsValue> storable(std::optional<UserDefaultsValue> value);

private:
    std::optional<UserDefaultsValue> registeredValue(std::string_view key) const;
    template <class Result>
    std::optional<Result> read(std::string_view key,
                               std::optional<Result> (*convert)(const UserDefaultsValue&)) const;

    std::mutex changing_; // held by `change`
    mutable std::mutex mutex_;
    Values registered_; // guarded by mutex_
};

} // namespace tarnwell
