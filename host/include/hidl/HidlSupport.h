// Host stand-in for the HIDL runtime's value types (libhidlbase's HidlSupport.h).
// Same names and the behaviour the service relies on: hidl_string can refer to
// memory it does not own (setToExternal) or hold a copy; hidl_array is a plain
// fixed-size array.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace android {
namespace hardware {

class hidl_string {
  public:
    hidl_string() = default;
    hidl_string(const char* s) { copyFrom(s, s ? strlen(s) : 0); }
    hidl_string(const char* s, size_t n) { copyFrom(s, n); }
    hidl_string(const std::string& s) { copyFrom(s.data(), s.size()); }
    hidl_string(const hidl_string& other) { copyFrom(other.c_str(), other.size()); }
    hidl_string(hidl_string&& other) noexcept { *this = std::move(other); }
    ~hidl_string() { clear(); }

    hidl_string& operator=(const hidl_string& other) {
        if (this != &other) copyFrom(other.c_str(), other.size());
        return *this;
    }
    hidl_string& operator=(hidl_string&& other) noexcept {
        if (this != &other) {
            clear();
            mBuffer = other.mBuffer;
            mSize = other.mSize;
            mOwnsBuffer = other.mOwnsBuffer;
            other.mBuffer = kEmpty;
            other.mSize = 0;
            other.mOwnsBuffer = false;
        }
        return *this;
    }
    hidl_string& operator=(const char* s) {
        copyFrom(s, s ? strlen(s) : 0);
        return *this;
    }
    hidl_string& operator=(const std::string& s) {
        copyFrom(s.data(), s.size());
        return *this;
    }

    // Refers to |data| without copying; the caller keeps it alive.
    void setToExternal(const char* data, size_t size) {
        clear();
        mBuffer = data ? data : kEmpty;
        mSize = data ? size : 0;
        mOwnsBuffer = false;
    }

    const char* c_str() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    operator std::string() const { return std::string(mBuffer, mSize); }

    void clear() {
        if (mOwnsBuffer) delete[] mBuffer;
        mBuffer = kEmpty;
        mSize = 0;
        mOwnsBuffer = false;
    }

  private:
    void copyFrom(const char* s, size_t n) {
        char* copy = new char[n + 1];
        if (n) memcpy(copy, s, n);
        copy[n] = '\0';
        clear();
        mBuffer = copy;
        mSize = n;
        mOwnsBuffer = true;
    }

    static constexpr const char* kEmpty = "";
    const char* mBuffer = kEmpty;
    size_t mSize = 0;
    bool mOwnsBuffer = false;
};

inline bool operator==(const hidl_string& a, const hidl_string& b) {
    return a.size() == b.size() && memcmp(a.c_str(), b.c_str(), a.size()) == 0;
}
inline bool operator==(const hidl_string& a, const char* b) {
    return a == hidl_string(b);
}

template <typename T, size_t SIZE>
class hidl_array {
  public:
    hidl_array() = default;
    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    T& operator[](size_t i) { return mBuffer[i]; }
    const T& operator[](size_t i) const { return mBuffer[i]; }
    static constexpr size_t size() { return SIZE; }

  private:
    T mBuffer[SIZE] = {};
};

}  // namespace hardware
}  // namespace android
