#pragma once

#include <initializer_list>
#include <memory>
#include <vector>

namespace halvane {

// A list shared between copies until one of them writes: undo snapshots of a value with many
// list fields then cost a few pointer copies, not deep copies. Reads are those of a const vector.
template <class T>
class CowList {
public:
    CowList() = default;
    CowList(std::vector<T> values) : data_(values.empty() ? nullptr : std::make_shared<std::vector<T>>(std::move(values))) {}
    CowList(std::initializer_list<T> values) : CowList(std::vector<T>(values)) {}

    const std::vector<T>& get() const { return data_ ? *data_ : empty_(); }
    operator const std::vector<T>&() const { return get(); }

    size_t size() const { return data_ ? data_->size() : 0; }
    bool empty() const { return size() == 0; }
    const T& operator[](size_t i) const { return (*data_)[i]; }
    const T& front() const { return data_->front(); }
    const T& back() const { return data_->back(); }
    auto begin() const { return get().begin(); }
    auto end() const { return get().end(); }

    // The one way to write: copies the list first when another value still shares it.
    std::vector<T>& edit() {
        if (!data_) data_ = std::make_shared<std::vector<T>>();
        else if (data_.use_count() > 1) data_ = std::make_shared<std::vector<T>>(*data_);
        return *data_;
    }
    void push_back(T value) { edit().push_back(std::move(value)); }
    void clear() { data_.reset(); }

    bool sharesStorageWith(const CowList& other) const { return data_ == other.data_; }

    friend bool operator==(const CowList& a, const CowList& b) {
        return a.data_ == b.data_ || a.get() == b.get();
    }

private:
    static const std::vector<T>& empty_() {
        static const std::vector<T> none;
        return none;
    }
    std::shared_ptr<std::vector<T>> data_;
};

}  // namespace halvane
