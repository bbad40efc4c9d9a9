#include "tovmisc.h"

#include "paramindex.h"
#include "valuetext.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

// Bound text and blocks are wider than an atomic access. The storage's lock keeps them whole between its callers; the
// bytes are atomic for an owner that looks at them beside it.
void LoadBytes(void const *bound, void *out, std::size_t size)
{
    auto const *const from = static_cast<std::uint8_t const *>(bound);
    auto *const to = static_cast<std::uint8_t *>(out);
    for (std::size_t i = 0; i < size; ++i)
        to[i] = TovLoadBound(from[i]);
}

void StoreBytes(void *bound, void const *in, std::size_t size)
{
    auto const *const from = static_cast<std::uint8_t const *>(in);
    auto *const to = static_cast<std::uint8_t *>(bound);
    for (std::size_t i = 0; i < size; ++i)
        TovStoreBound(to[i], from[i]);
}

bool Aligned(void const *pointer, std::size_t alignment)
{
    return pointer && reinterpret_cast<std::uintptr_t>(pointer) % alignment == 0;
}

bool IsValid(_TovStParam const &param)
{
    if (!param.name[0] || !std::memchr(param.name, 0, sizeof param.name))
        return false;
    switch (param.type) {
    case TOV_PARAM_INT:
        return Aligned(param.i.value, sizeof(std::int64_t)) && param.i.minimum <= param.i.maximum;
    case TOV_PARAM_BOOL:
        return param.b.value != nullptr;
    case TOV_PARAM_FLOAT:
        return Aligned(param.f.value, sizeof(double)) && param.f.minimum <= param.f.maximum;
    case TOV_PARAM_STRING:
        return param.s.value && param.s.capacity > 0;
    case TOV_PARAM_ARRAY:
        return param.a.value && param.a.size > 0 && param.a.size <= 0xFFFFFFFFu;
    case TOV_PARAM_COMMAND:
        return param.c.function != nullptr;
    default:
        return false;
    }
}

TovStatus CopyOut(std::string const &text, char *buffer, unsigned int *capacity)
{
    if (!capacity || (!buffer && *capacity))
        return TOV_PARAM_ERR_ARGUMENT;
    if (text.size() >= *capacity) {
        *capacity = static_cast<unsigned int>(text.size() + 1);
        return TOV_PARAM_ERR_BUFFER;
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return TOV_PARAM_OK;
}

} // namespace

struct TovParamStorage::Impl
{
    unsigned int component;
    mutable std::mutex mutex; // guards registration, the listener lists, and bound text and blocks
    std::vector<std::unique_ptr<ParamEntry>> entries; // mutex
    std::vector<std::unique_ptr<ParamIndex const>>
        indexes; // mutex; the last one is in use, readers may have the others
    std::atomic<ParamIndex const *> index;

    explicit Impl(unsigned int id) : component(id)
    {
        Publish(std::make_unique<ParamIndex const>());
    }

    // With the mutex held, but in the constructor.
    void Publish(std::unique_ptr<ParamIndex const> next)
    {
        indexes.push_back(std::move(next));
        index.store(indexes.back().get(), std::memory_order_release);
    }

    ParamIndex const &current() const
    {
        return *index.load(std::memory_order_acquire);
    }

    TovStatus find(char const *key, ParamEntry **entry) const
    {
        if (!key)
            return TOV_PARAM_ERR_ARGUMENT;
        *entry = current().Find(key);
        return *entry ? TOV_PARAM_OK : TOV_PARAM_ERR_UNKNOWN_KEY;
    }

    TovStatus find(char const *key, TovParamType type, ParamEntry **entry) const
    {
        TovStatus const status = find(key, entry);
        if (status == TOV_PARAM_OK && (*entry)->record.type != type)
            return TOV_PARAM_ERR_TYPE;
        return status;
    }

    std::string text(ParamEntry const &entry) const
    {
        auto const &s = entry.record.s;
        std::string result(s.capacity, '\0');
        {
            std::lock_guard const lock(mutex);
            LoadBytes(s.value, result.data(), s.capacity);
        }
        result.resize(std::min(result.find('\0'), result.size()));
        return result;
    }

    // A string as it is, a block in hexadecimal.
    std::string asText(ParamEntry const &entry) const
    {
        if (entry.record.type == TOV_PARAM_STRING)
            return text(entry);
        std::vector<std::uint8_t> bytes(entry.record.a.size);
        {
            std::lock_guard const lock(mutex);
            LoadBytes(entry.record.a.value, bytes.data(), bytes.size());
        }
        return ValueText::FromBytes(bytes.data(), bytes.size());
    }

    // With no lock held.
    void changed(ParamEntry &entry, bool notify)
    {
        if (!notify)
            return;
        if (entry.record.onChange) {
            _TovStParam record = entry.record;
            record.onChange(component, &record);
        }
        if (!entry.hasListeners.load(std::memory_order_acquire))
            return;
        std::vector<TovParamListener *> listeners;
        {
            std::lock_guard const lock(mutex);
            listeners = entry.listeners;
        }
        for (TovParamListener *listener : listeners)
            listener->ParamChanged(entry.record);
    }

    TovStatus setInt(ParamEntry &entry, std::int64_t value, bool notify)
    {
        auto const &i = entry.record.i;
        TovStoreBound(*i.value, std::clamp(value, i.minimum, i.maximum));
        changed(entry, notify);
        return TOV_PARAM_OK;
    }

    TovStatus setBool(ParamEntry &entry, bool value, bool notify)
    {
        TovStoreBound(*entry.record.b.value, value);
        changed(entry, notify);
        return TOV_PARAM_OK;
    }

    TovStatus setFloat(ParamEntry &entry, double value, bool notify)
    {
        if (std::isnan(value))
            return TOV_PARAM_ERR_VALUE;
        auto const &f = entry.record.f;
        TovStoreBound(*f.value, std::clamp(value, f.minimum, f.maximum));
        changed(entry, notify);
        return TOV_PARAM_OK;
    }

    TovStatus setString(ParamEntry &entry, char const *value, bool notify)
    {
        auto const &s = entry.record.s;
        std::size_t const length = strnlen(value, s.capacity);
        if (length == s.capacity)
            return TOV_PARAM_ERR_VALUE;
        {
            std::lock_guard const lock(mutex);
            StoreBytes(s.value, value, length + 1);
        }
        changed(entry, notify);
        return TOV_PARAM_OK;
    }

    TovStatus setArray(ParamEntry &entry, void const *data, bool notify)
    {
        {
            std::lock_guard const lock(mutex);
            StoreBytes(entry.record.a.value, data, entry.record.a.size);
        }
        changed(entry, notify);
        return TOV_PARAM_OK;
    }
};

TovParamStorage::TovParamStorage(unsigned int component) : m_impl(std::make_unique<Impl>(component))
{
}

TovParamStorage::~TovParamStorage() = default;

TovStatus TovParamStorage::AddParam(_TovStParam const *param)
{
    if (!param || !IsValid(*param))
        return TOV_PARAM_ERR_ARGUMENT;
    auto entry = std::make_unique<ParamEntry>();
    entry->record = *param;

    std::lock_guard const lock(m_impl->mutex);
    ParamIndex const &index = m_impl->current();
    if (index.Find(param->name))
        return TOV_PARAM_ERR_ARGUMENT;
    m_impl->entries.push_back(std::move(entry));
    m_impl->Publish(std::make_unique<ParamIndex const>(index, m_impl->entries.back().get()));
    return TOV_PARAM_OK;
}

TovStatus TovParamStorage::AddParamChangedListener(char const *key, TovParamListener *listener)
{
    ParamEntry *entry = nullptr;
    if (TovStatus const status = m_impl->find(key, &entry))
        return status;
    if (!listener)
        return TOV_PARAM_ERR_ARGUMENT;
    std::lock_guard const lock(m_impl->mutex);
    entry->listeners.push_back(listener);
    entry->hasListeners.store(true, std::memory_order_release);
    return TOV_PARAM_OK;
}

TovStatus TovParamStorage::RemoveParamChangedListener(char const *key, TovParamListener *listener)
{
    ParamEntry *entry = nullptr;
    if (TovStatus const status = m_impl->find(key, &entry))
        return status;
    std::lock_guard const lock(m_impl->mutex);
    auto const position = std::find(entry->listeners.begin(), entry->listeners.end(), listener);
    if (position == entry->listeners.end())
        return TOV_PARAM_ERR_ARGUMENT;
    entry->listeners.erase(position);
    entry->hasListeners.store(!entry->listeners.empty(), std::memory_order_release);
    return TOV_PARAM_OK;
}

unsigned int TovParamStorage::GetParamCount() const
{
    return m_impl->current().Count();
}

TovStatus TovParamStorage::GetParamByIdx(unsigned int index, _TovStParam *param) const
{
    ParamEntry const *const entry = m_impl->current().At(index);
    if (!entry || !param)
        return TOV_PARAM_ERR_ARGUMENT;
    *param = entry->record;
    return TOV_PARAM_OK;
}

TovStatus TovParamStorage::GetParamBool(char const *key, bool *value) const
{
    ParamEntry *entry = nullptr;
    TovStatus const status = value ? m_impl->find(key, TOV_PARAM_BOOL, &entry) : TOV_PARAM_ERR_ARGUMENT;
    if (status == TOV_PARAM_OK)
        *value = TovLoadBound(*entry->record.b.value);
    return status;
}

TovStatus TovParamStorage::GetParamInt(char const *key, long *value) const
{
    ParamEntry *entry = nullptr;
    TovStatus const status = value ? m_impl->find(key, TOV_PARAM_INT, &entry) : TOV_PARAM_ERR_ARGUMENT;
    if (status == TOV_PARAM_OK)
        *value = TovLoadBound(*entry->record.i.value);
    return status;
}

TovStatus TovParamStorage::GetParamFloat(char const *key, double *value) const
{
    ParamEntry *entry = nullptr;
    TovStatus const status = value ? m_impl->find(key, TOV_PARAM_FLOAT, &entry) : TOV_PARAM_ERR_ARGUMENT;
    if (status == TOV_PARAM_OK)
        *value = TovLoadBound(*entry->record.f.value);
    return status;
}

TovStatus TovParamStorage::GetParamString(char const *key, char *buffer, unsigned int *capacity) const
{
    ParamEntry *entry = nullptr;
    TovStatus const status = m_impl->find(key, TOV_PARAM_STRING, &entry);
    return status == TOV_PARAM_OK ? CopyOut(m_impl->text(*entry), buffer, capacity) : status;
}

TovStatus TovParamStorage::GetParamArray(char const *key, void *buffer, unsigned int *size) const
{
    ParamEntry *entry = nullptr;
    if (TovStatus const status = m_impl->find(key, TOV_PARAM_ARRAY, &entry))
        return status;
    if (!size || (!buffer && *size))
        return TOV_PARAM_ERR_ARGUMENT;
    auto const &a = entry->record.a;
    unsigned int const room = *size;
    *size = static_cast<unsigned int>(a.size);
    if (room < a.size)
        return TOV_PARAM_ERR_BUFFER;
    std::lock_guard const lock(m_impl->mutex);
    LoadBytes(a.value, buffer, a.size);
    return TOV_PARAM_OK;
}

TovStatus TovParamStorage::GetParamAsString(char const *key, char *buffer, unsigned int *capacity,
                                            char const *format) const
{
    ParamEntry *entry = nullptr;
    if (TovStatus const status = m_impl->find(key, &entry))
        return status;
    _TovStParam const &record = entry->record;
    std::string text;
    bool fits = true;
    switch (record.type) {
    case TOV_PARAM_INT:
    case TOV_PARAM_BOOL: {
        std::int64_t const value =
            record.type == TOV_PARAM_INT ? TovLoadBound(*record.i.value) : TovLoadBound(*record.b.value);
        if (format)
            fits = ValueText::FormatInt(format, value, &text);
        else
            text = std::to_string(value);
        break;
    }
    case TOV_PARAM_FLOAT: {
        double const value = TovLoadBound(*record.f.value);
        if (format)
            fits = ValueText::FormatFloat(format, value, &text);
        else
            text = ValueText::FromFloat(value);
        break;
    }
    case TOV_PARAM_STRING:
    case TOV_PARAM_ARRAY: {
        text = m_impl->asText(*entry);
        if (format)
            fits = ValueText::FormatString(format, std::string(text), &text);
        break;
    }
    default:
        return TOV_PARAM_ERR_TYPE;
    }
    return fits ? CopyOut(text, buffer, capacity) : TOV_PARAM_ERR_FORMAT;
}

TovStatus TovParamStorage::SetParamBool(char const *key, bool value, bool notify)
{
    ParamEntry *entry = nullptr;
    TovStatus const status = m_impl->find(key, TOV_PARAM_BOOL, &entry);
    return status == TOV_PARAM_OK ? m_impl->setBool(*entry, value, notify) : status;
}

TovStatus TovParamStorage::SetParamInt(char const *key, long value, bool notify)
{
    ParamEntry *entry = nullptr;
    TovStatus const status = m_impl->find(key, TOV_PARAM_INT, &entry);
    return status == TOV_PARAM_OK ? m_impl->setInt(*entry, value, notify) : status;
}

TovStatus TovParamStorage::SetParamFloat(char const *key, double value, bool notify)
{
    ParamEntry *entry = nullptr;
    TovStatus const status = m_impl->find(key, TOV_PARAM_FLOAT, &entry);
    return status == TOV_PARAM_OK ? m_impl->setFloat(*entry, value, notify) : status;
}

TovStatus TovParamStorage::SetParamString(char const *key, char const *value, bool notify)
{
    ParamEntry *entry = nullptr;
    if (TovStatus const status = m_impl->find(key, TOV_PARAM_STRING, &entry))
        return status;
    return value ? m_impl->setString(*entry, value, notify) : TOV_PARAM_ERR_ARGUMENT;
}

TovStatus TovParamStorage::SetParamArray(char const *key, void const *data, unsigned int size, bool notify)
{
    ParamEntry *entry = nullptr;
    if (TovStatus const status = m_impl->find(key, TOV_PARAM_ARRAY, &entry))
        return status;
    if (!data)
        return TOV_PARAM_ERR_ARGUMENT;
    return size == entry->record.a.size ? m_impl->setArray(*entry, data, notify) : TOV_PARAM_ERR_VALUE;
}

TovStatus TovParamStorage::SetParamAsString(char const *key, char const *value, bool notify)
{
    ParamEntry *entry = nullptr;
    if (TovStatus const status = m_impl->find(key, &entry))
        return status;
    if (!value)
        return TOV_PARAM_ERR_ARGUMENT;
    switch (entry->record.type) {
    case TOV_PARAM_INT: {
        std::int64_t number = 0;
        return ValueText::ParseInt(value, &number) ? m_impl->setInt(*entry, number, notify) : TOV_PARAM_ERR_VALUE;
    }
    case TOV_PARAM_BOOL: {
        bool flag = false;
        return ValueText::ParseBool(value, &flag) ? m_impl->setBool(*entry, flag, notify) : TOV_PARAM_ERR_VALUE;
    }
    case TOV_PARAM_FLOAT: {
        double number = 0;
        return ValueText::ParseFloat(value, &number) ? m_impl->setFloat(*entry, number, notify) : TOV_PARAM_ERR_VALUE;
    }
    case TOV_PARAM_STRING:
        return m_impl->setString(*entry, value, notify);
    case TOV_PARAM_ARRAY: {
        std::vector<std::uint8_t> bytes(entry->record.a.size);
        return ValueText::ParseBytes(value, bytes.data(), bytes.size()) ? m_impl->setArray(*entry, bytes.data(), notify)
                                                                        : TOV_PARAM_ERR_VALUE;
    }
    default:
        return TOV_PARAM_ERR_TYPE;
    }
}

TovStatus TovParamStorage::RunCommand(char const *key)
{
    ParamEntry *entry = nullptr;
    TovStatus const status = m_impl->find(key, TOV_PARAM_COMMAND, &entry);
    return status == TOV_PARAM_OK ? entry->record.c.function(entry->record.c.context) : status;
}
