#include "options/json.h"

#include <string>

#include "core/text.h"

namespace quorl {

namespace {

bool ReadNode(const std::shared_ptr<OptionNode>& node, const JsonValue& json) {
  switch (json.GetType()) {
    case rapidjson::kNullType:
      return false;
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
      node->MutableValue().SetTyped<BoolType>(json.GetBool() ? 1 : 0);
      return true;
    case rapidjson::kObjectType: {
      bool result = false;
      node->ReserveChildren(node->GetChildren().size() + json.MemberCount());
      for (auto member = json.MemberBegin(); member != json.MemberEnd(); ++member) {
        // Intended: keys end at their first NUL, whatever length the DOM stores.
        auto child = node->AddNewChild(HashedName(TextOf(member->name.GetString())));
        result = ReadNode(child, member->value);
      }
      return result;
    }
    case rapidjson::kArrayType: {
      bool result = false;
      node->ReserveChildren(node->GetChildren().size() + json.Size());
      for (const JsonValue& element : json.GetArray()) {
        auto child = node->AddNewChild(HashedName());
        result = ReadNode(child, element);
      }
      return result;
    }
    case rapidjson::kStringType:
      node->MutableValue().SetTyped<StringType>(TextOf(json.GetString()));
      return true;
    case rapidjson::kNumberType:
      // By the flags the DOM keeps, so that the type follows the number's magnitude.
      if (json.IsDouble()) {
        node->MutableValue().SetTyped<DoubleType>(json.GetDouble());
      } else if (json.IsInt()) {
        node->MutableValue().SetTyped<Int32Type>(json.GetInt());
      } else if (json.IsUint()) {
        node->MutableValue().SetTyped<UInt32Type>(json.GetUint());
      } else if (json.IsInt64()) {
        node->MutableValue().SetTyped<Int64Type>(json.GetInt64());
      } else if (json.IsUint64()) {
        node->MutableValue().SetTyped<UInt64Type>(json.GetUint64());
      } else {
        return false;
      }
      return true;
  }
  return false;
}

class Writer {
 public:
  explicit Writer(JsonAllocator& allocator) : allocator(allocator) {}

  bool WriteChildren(const OptionNode& node, JsonValue& out) {
    bool result = false;
    // The first child alone decides between array and object, for every child.
    const bool asArray = node.IsArray();
    for (const auto& child : node.GetChildren()) {
      if (child->GetValue().IsEmpty()) continue;
      JsonValue value = ValueOf(child->GetValue());
      PassNameThroughTests();
      Add(out, asArray, child->GetName(), value);
      result = true;
    }
    // Containers come after all values, whatever their order among the children (intended).
    for (const auto& child : node.GetChildren()) {
      PassNameThroughTests();
      if (child->IsObject()) {
        JsonValue inner(rapidjson::kObjectType);
        WriteChildren(*child, inner);
        Add(out, asArray, child->GetName(), inner);
        result = true;
      } else if (child->IsArray()) {
        JsonValue inner(rapidjson::kArrayType);
        WriteChildren(*child, inner);
        Add(out, asArray, child->GetName(), inner);
        result = true;
      }
    }
    return result;
  }

 private:
  template <class T>
  static const typename T::Payload& As(const OptionValue& value) {
    return *static_cast<const typename T::Payload*>(value.GetPayload());
  }

  // The DOM value of a typed value, chosen by testing its table against each table in turn. Each test
  // is a typed use of that table and so registers it, which fixes the ids that writing hands out.
  JsonValue ValueOf(const OptionValue& value) {
    const ValueTypeTable* table = value.GetTable();
    if (table == EnsureRegistered<BoolType>()) return JsonValue(As<BoolType>(value) != 0);
    if (table == EnsureRegistered<FloatType>()) return JsonValue(static_cast<double>(As<FloatType>(value)));
    if (table == EnsureRegistered<DoubleType>()) return JsonValue(As<DoubleType>(value));
    if (table == EnsureRegistered<Int32Type>()) return JsonValue(As<Int32Type>(value));
    // Intended: the stored bits are read as signed, so 3000000000 is written as -1294967296.
    if (table == EnsureRegistered<UInt32Type>())
      return JsonValue(static_cast<int32_t>(As<UInt32Type>(value)));
    if (table == EnsureRegistered<Int64Type>()) return JsonValue(As<Int64Type>(value));
    if (table == EnsureRegistered<UInt64Type>()) return JsonValue(As<UInt64Type>(value));
    text.clear();
    table->toText(text, value.GetPayload());
    return JsonValue(text.data(), text.size(), allocator);
  }

  // A child's name goes through the same table tests as a name-typed value, where it falls to the text
  // row. Only the registrations that those tests make are kept from that passage; the key text itself
  // is copied straight from the name when it is used, without a temporary value.
  static void PassNameThroughTests() {
    const ValueTypeTable* table = EnsureRegistered<HashedNameType>();
    const bool isScalarRow =
        table == EnsureRegistered<BoolType>() || table == EnsureRegistered<FloatType>() ||
        table == EnsureRegistered<DoubleType>() || table == EnsureRegistered<Int32Type>() ||
        table == EnsureRegistered<UInt32Type>() || table == EnsureRegistered<Int64Type>() ||
        table == EnsureRegistered<UInt64Type>();
    static_cast<void>(isScalarRow);
  }

  void Add(JsonValue& out, bool asArray, const HashedName& name, JsonValue& value) {
    if (asArray) {
      out.PushBack(value, allocator);
    } else {
      JsonValue key(name.name.data(), name.name.size(), allocator);
      out.AddMember(key, value, allocator);
    }
  }

  JsonAllocator& allocator;
  std::string text;  // reused for every text value, so that rendering allocates only when it grows
};

}  // namespace

bool ReadJson(const std::shared_ptr<OptionNode>& node, const JsonValue& json) {
  return ReadNode(node, json);
}

bool WriteJson(const std::shared_ptr<OptionNode>& node, JsonValue& json, JsonAllocator& allocator) {
  Writer writer(allocator);
  return writer.WriteChildren(*node, json);
}

}  // namespace quorl
