// Host stand-in for libhidlbase's Status.h: Return<T> carries a value or a
// transport error, Void() is the successful Return<void>.
#pragma once

#include <string>
#include <utility>

namespace android {
namespace hardware {

class Status {
  public:
    static Status ok() { return Status(); }
    static Status fromTransportError(std::string message) {
        Status s;
        s.mOk = false;
        s.mMessage = std::move(message);
        return s;
    }
    bool isOk() const { return mOk; }
    const std::string& description() const { return mMessage; }

  private:
    bool mOk = true;
    std::string mMessage;
};

template <typename T>
class Return {
  public:
    Return(T value) : mValue(std::move(value)) {}
    Return(const Status& status) : mValue(), mStatus(status) {}
    bool isOk() const { return mStatus.isOk(); }
    std::string description() const { return mStatus.description(); }
    T withDefault(T def) const { return isOk() ? mValue : def; }
    operator T() const { return mValue; }

  private:
    T mValue;
    Status mStatus;
};

template <>
class Return<void> {
  public:
    Return() = default;
    Return(const Status& status) : mStatus(status) {}
    bool isOk() const { return mStatus.isOk(); }
    std::string description() const { return mStatus.description(); }

  private:
    Status mStatus;
};

inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
