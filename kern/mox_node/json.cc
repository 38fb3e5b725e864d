#include "kern/mox_node/json.h"

#include "kern/mox_node/jsonwriter.h"

namespace moxnode {

namespace {

constexpr int form_version = 1;

void text_or_null(JsonWriter& json, const char* text) {
  text != nullptr ? json.value(text) : json.null();
}

void text_or_null(JsonWriter& json, const std::string& text) {
  text.empty() ? json.null() : json.value(text);
}

template <class T>
void when(JsonWriter& json, bool known, T number) {
  known ? json.value(number) : json.null();
}

// What segments and sets have in common.
void object_head(JsonWriter& json, const ObjectReport& object) {
  const bool there = object.look.found == Found::THERE;
  const Object& found = object.look.object;
  json.key("key").value(object.key);
  json.key("state").word(name_of(object.state));
  json.key("wanted").value(object.wanted);
  when(json.key("size"), there, found.size);
  when(json.key("id"), there, found.id);
  json.key("mode");
  there ? json.word(octal(found.mode)) : json.null();
  when(json.key("uid"), there, found.uid);
  when(json.key("gid"), there, found.gid);
}

void segment(JsonWriter& json, const ObjectReport& object) {
  const bool there = object.look.found == Found::THERE;
  const Object& found = object.look.object;
  json.begin_object();
  json.key("buffer").word(object.name());
  object_head(json, object);
  when(json.key("attached"), there, found.attached);
  when(json.key("creator_pid"), there && found.creator_pid != 0, found.creator_pid);
  when(json.key("last_pid"), there && found.last_pid != 0, found.last_pid);
  when(json.key("changed_at"), there, found.changed_at);
  json.end_object();
}

void set(JsonWriter& json, const ObjectReport& object) {
  json.begin_object();
  object_head(json, object);
  when(json.key("changed_at"), object.look.found == Found::THERE, object.look.object.changed_at);
  json.end_object();
}

void extra(JsonWriter& json, const ObjectReport& object) {
  const bool there = object.look.found == Found::THERE;
  const Object& found = object.look.object;
  json.begin_object();
  json.key("kind").word("segment");
  json.key("key").value(object.key);
  when(json.key("size"), there, found.size);
  when(json.key("id"), there, found.id);
  when(json.key("uid"), there, found.uid);
  when(json.key("attached"), there, found.attached);
  json.end_object();
}

void header(JsonWriter& json, const std::optional<DeviceHeader>& found) {
  const bool there = found.has_value();
  const DeviceHeader header = found.value_or(DeviceHeader());
  when(json.key("number"), there, header.number);
  when(json.key("type"), there, header.is_data ? "data" : "log");
  when(json.key("block_size"), there, header.block_size);
  when(json.key("created"), there, header.created);
  when<std::string_view>(json.key("name"), there, header.name);
}

void device(JsonWriter& json, const DeviceReport& device, bool planned) {
  json.begin_object();
  json.key("device").value(device.number);
  text_or_null(json.key("path"), device.path);
  json.key("state").word(name_of(device.facts.state));
  text_or_null(json.key("kind"), device.facts.kind);
  json.key("bytes").value(device.facts.bytes);
  header(json, device.facts.header);
  if (planned) {
    text_or_null(json.key("check"), name_of(device.check));
  }
  json.end_object();
}

template <std::size_t size, class List, class Write>
void list(JsonWriter& json, const char (&key)[size], const List& items, Write write) {
  json.key(key).begin_list();
  for (const auto& item : items) write(item);
  json.end_list();
}

void node(JsonWriter& json, const NodeReport& node, bool planned) {
  json.begin_object();
  json.key("node").value(node.number);
  json.key("ipcbase").value(node.ipcbase);
  json.key("state").word(name_of(node.state));
  json.key("attached").value(node.attached);
  text_or_null(json.key("reason"), node.reason);
  if (planned) json.key("plan").word(name_of(node.step));
  list(json, "segments", node.segments, [&](const auto& item) { segment(json, item); });
  set(json.key("semaphores"), node.set);
  list(json, "extra", node.extra, [&](const auto& item) { extra(json, item); });
  list(json, "devices", node.devices, [&](const auto& item) { device(json, item, planned); });
  json.end_object();
}

void limit(JsonWriter& json, const LimitReport& limit) {
  json.begin_object();
  json.key("name").value(limit.name);
  json.key("limit").value(limit.limit);
  json.key("in_use").value(limit.in_use);
  json.key("needed").value(limit.needed);
  json.key("fits").value(limit.fits);
  json.end_object();
}

void space(JsonWriter& json, const SpaceReport& space) {
  json.begin_object();
  json.key("path").value(space.path);
  json.key("needed").value(space.needed);
  json.key("free").value(space.free);
  json.key("fits").value(space.fits);
  json.end_object();
}

void head(JsonWriter& json, Verb verb) {
  json.begin_object();
  json.key("version").value(form_version);
  text_or_null(json.key("verb"), name_of(verb));
}

}  // namespace

Lines to_json(const Report& report) {
  const bool planned = report.verb == Verb::PLAN;
  constexpr std::size_t bytes_per_node = 2000;
  JsonWriter json(report.nodes.size() * bytes_per_node);
  head(json, report.verb);
  json.key("state").word(name_of(report.state));
  json.key("changed").value(report.changed);
  json.key("before").word(name_of(report.before));
  if (planned) {
    list(json, "limits", report.limits, [&](const auto& item) { limit(json, item); });
    list(json, "space", report.space, [&](const auto& item) { space(json, item); });
  }
  list(json, "nodes", report.nodes, [&](const auto& item) { node(json, item, planned); });
  json.end_object();
  return json.take_line();
}

Lines error_to_json(Verb verb, const std::string& error) {
  JsonWriter json(error.size());
  head(json, verb);
  json.key("error").value(error);
  json.end_object();
  return json.take_line();
}

}  // namespace moxnode
