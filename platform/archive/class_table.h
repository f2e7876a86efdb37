// class_table.h: builds the constant table of an archivable class from pointers to its members.
//
//     constexpr auto kFields = fieldTable(
//         field<&ItemFields::identifier>("identifier"),
//         object<&ItemFields::container>("container"),                                  // weak_ptr or shared_ptr
//         objects<&ItemFields::children>("items", {.use = FieldUse::OrdinaryOnly}));    // see MembersOf
//     constexpr ClassInfo kClass = describeClass<Item, &ItemAccess::fields, &ItemAccess::finish>("Item", kFields);
//     const ClassInfo& archiveClass(const Item*) { return kClass; }
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/archive/class_info.h"
#include "platform/archive/field_forms.h"

namespace ksw::archive {

/// What a row may say beside its key.
struct FieldOptions {
    FieldUse use = FieldUse::EveryCoder;
    ValueKinds kinds = ValueKinds::PropertyList;
    std::size_t sizeMax = limits::kFieldMax;
};

/// A row that still knows whose members it names.
template <class Owner>
struct FieldOf {
    using Fields = Owner;
    FieldInfo info;
};

/// How a member that holds a list of objects is read and made: specialise it for lists of one's own. `Object` is
/// the class, `isPresent` whether the key is written, `span` its objects in order, none of them null, and `from`
/// makes the member when all of them are there.
template <class Member>
struct MembersOf;

template <class T>
struct MembersOf<std::vector<std::shared_ptr<T>>> {
    using Object = T;
    static bool isPresent(const std::vector<std::shared_ptr<T>>&) { return true; }
    static std::span<const std::shared_ptr<T>> span(const std::vector<std::shared_ptr<T>>& member) {
        return member;
    }
    static std::vector<std::shared_ptr<T>> from(std::vector<std::shared_ptr<T>> objects) { return objects; }
};

namespace detail {

template <class Member>
struct MemberPointer;
template <class Owner, class T>
struct MemberPointer<T Owner::*> {
    using Class = Owner;
    using Type = T;
};
template <auto member>
using ClassOf = typename MemberPointer<decltype(member)>::Class;
template <auto member>
using TypeOf = typename MemberPointer<decltype(member)>::Type;

template <auto member>
const TypeOf<member>& get(const void* fields) {
    return static_cast<const ClassOf<member>*>(fields)->*member;
}
template <auto member>
TypeOf<member>& get(void* fields) {
    return static_cast<ClassOf<member>*>(fields)->*member;
}

template <auto member, class MemberForm>
consteval FieldOf<ClassOf<member>> valueRow(std::string_view key, const FieldOptions& options) {
    return {FieldInfo{EncodedKey(key), options.use, options.kinds, options.sizeMax,
                      [](const void* fields) { return MemberForm::isPresent(get<member>(fields)); },
                      [](Writer& writer, const FieldInfo& row, const void* fields) {
                          MemberForm::write(writer, row, get<member>(fields));
                      },
                      [](Reader& reader, const FieldInfo& row, void* fields) {
                          return MemberForm::read(reader, row, get<member>(fields));
                      },
                      nullptr}};
}

template <class Pointer>
struct Link;
template <class T>
struct Link<std::shared_ptr<T>> {
    using Object = T;
    static constexpr Ownership kOwnership = Ownership::Strong;
    static const T* target(const std::shared_ptr<T>& link, std::shared_ptr<const void>&) { return link.get(); }
    static bool isPresent(const std::shared_ptr<T>& link) { return link != nullptr; }
};
template <class T>
struct Link<std::weak_ptr<T>> {
    using Object = T;
    static constexpr Ownership kOwnership = Ownership::Weak;
    static const T* target(const std::weak_ptr<T>& link, std::shared_ptr<const void>& owner) {
        std::shared_ptr<T> locked = link.lock();
        const T* object = locked.get();
        owner = std::move(locked);
        return object;
    }
    static bool isPresent(const std::weak_ptr<T>& link) { return !link.expired(); }
};

template <auto member>
struct SingleLinks {
    using Form = Link<TypeOf<member>>;
    using Object = typename Form::Object;
    static constexpr ObjectLinks kLinks{
        &classInfo<Object>,
        Form::kOwnership,
        /*isList=*/false,
        [](const void* fields) -> std::size_t { return Form::isPresent(get<member>(fields)) ? 1 : 0; },
        [](const void* fields, std::size_t, std::shared_ptr<const void>& owner) -> const void* {
            return Form::target(get<member>(fields), owner);
        },
        [](void* fields, std::span<const std::shared_ptr<void>> objects) {
            get<member>(fields) = std::static_pointer_cast<Object>(objects.front());
        },
        [](void* fields) { get<member>(fields) = TypeOf<member>(); }};
};

template <auto member>
struct ListLinks {
    using Members = MembersOf<TypeOf<member>>;
    using Object = typename Members::Object;
    static void link(void* fields, std::span<const std::shared_ptr<void>> objects) {
        std::vector<std::shared_ptr<Object>> typed;
        typed.reserve(objects.size());
        for (const auto& one : objects) {
            typed.push_back(std::static_pointer_cast<Object>(one));
        }
        get<member>(fields) = Members::from(std::move(typed));
    }
    static constexpr ObjectLinks kLinks{
        &classInfo<Object>,
        Ownership::Strong,
        /*isList=*/true,
        [](const void* fields) -> std::size_t { return Members::span(get<member>(fields)).size(); },
        [](const void* fields, std::size_t index, std::shared_ptr<const void>&) -> const void* {
            return Members::span(get<member>(fields))[index].get();
        },
        &link,
        [](void* fields) { get<member>(fields) = TypeOf<member>(); }};
};

template <class T, auto fieldsOf>
struct ClassThunks {
    using Fields = std::remove_reference_t<std::invoke_result_t<decltype(fieldsOf), T&>>;
    static std::shared_ptr<void> make() { return std::make_shared<T>(); }
    static void* fields(void* object) { return &fieldsOf(*static_cast<T*>(object)); }
};

template <class T>
constexpr T& itself(T& object) {
    return object;
}

}  // namespace detail

/// A row for a member that is a value: bool, integers, double, std::string, Data, UUID, Dictionary, Value, lists of
/// strings or Data, and optionals of them and of URL. A number or bool is always written, an absent optional never.
template <auto member>
consteval auto field(std::string_view key, FieldOptions options = {}) {
    return detail::valueRow<member, FieldForm<detail::TypeOf<member>>>(key, options);
}

/// A row for a bool that is archived as the integer 0 or 1; any other integer reads as true.
template <auto member>
consteval auto numericFlag(std::string_view key, FieldOptions options = {}) {
    return detail::valueRow<member, NumericFlagForm>(key, options);
}

/// A row for a `std::shared_ptr` (owned) or `std::weak_ptr` (not owned) to an archivable object.
template <auto member>
consteval auto object(std::string_view key, FieldOptions options = {}) {
    using Links = detail::SingleLinks<member>;
    return FieldOf<detail::ClassOf<member>>{
        FieldInfo{EncodedKey(key), options.use, options.kinds, options.sizeMax,
                  [](const void* fields) { return Links::Form::isPresent(detail::get<member>(fields)); }, nullptr,
                  nullptr, &Links::kLinks}};
}

/// A row for an ordered list of archivable objects, which the object owns.
template <auto member>
consteval auto objects(std::string_view key, FieldOptions options = {}) {
    using Links = detail::ListLinks<member>;
    return FieldOf<detail::ClassOf<member>>{
        FieldInfo{EncodedKey(key), options.use, options.kinds, options.sizeMax,
                  [](const void* fields) { return Links::Members::isPresent(detail::get<member>(fields)); },
                  nullptr, nullptr, &Links::kLinks}};
}

/// A class's rows, all of members of one class.
template <class Owner, std::size_t size>
struct FieldTable {
    using Fields = Owner;
    std::array<FieldInfo, size> rows;
};

/// The rows in their order. Two of the same key, or too many, do not compile.
template <class First, class... More>
requires(std::same_as<typename First::Fields, typename More::Fields>&&...) consteval auto fieldTable(First first,
                                                                                                     More... more) {
    static_assert(1 + sizeof...(More) <= ClassInfo::kFieldsMax);
    FieldTable<typename First::Fields, 1 + sizeof...(More)> table{{first.info, more.info...}};
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (table.rows[i].key.text() == table.rows[j].key.text()) {
                throw "two rows of a table have the same key";
            }
        }
    }
    return table;
}

/// The class's description. `fieldsOf` is a function from T& to the object that has the members, by default the T
/// itself; `finish` a `Status(T&, const FinishContext&)`, or null. `table` has static storage.
template <class T, auto fieldsOf = &detail::itself<T>, auto finish = nullptr, class Table>
requires std::same_as<typename Table::Fields, typename detail::ClassThunks<T, fieldsOf>::Fields>
constexpr ClassInfo describeClass(std::string_view name, const Table& table) {
    using Thunks = detail::ClassThunks<T, fieldsOf>;
    constexpr std::size_t kAllocation = 4 * sizeof(void*);  // reference counts and the allocator's own
    constexpr std::size_t kFieldsSize =
        std::same_as<T, typename Thunks::Fields> ? 0 : sizeof(typename Thunks::Fields);
    Status (*finishThunk)(void*, const FinishContext&) = nullptr;
    if constexpr (!std::is_null_pointer_v<decltype(finish)>) {
        finishThunk = [](void* object, const FinishContext& context) {
            return finish(*static_cast<T*>(object), context);
        };
    }
    return ClassInfo{name,          table.rows,      sizeof(T) + kFieldsSize + 2 * kAllocation,
                     &Thunks::make, &Thunks::fields, finishThunk};
}

}  // namespace ksw::archive
