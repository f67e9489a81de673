#include <string>

#include "addons/encryption/content.h"
#include "addons/encryption/content_tables.h"

namespace Corvan::encryption {

namespace {

// Settings that only an empty database accepts come first.
void copy_settings(const Database& from, const Database& to) {
  to.run("pragma encoding=" + literal(from.value("pragma encoding")));
  for (const char* const name : {"auto_vacuum", "application_id", "user_version"}) {
    const std::string pragma = std::string("pragma ") + name;
    to.run(pragma + "=" + from.value(pragma));
  }
}

void create(const Database& from, const Database& to, const std::string& condition) {
  const std::vector<std::string> statements = from.values(
      "select sql from sqlite_master where sql is not null and " + condition + " order by rowid");
  for (const std::string& sql : statements) to.run(sql);
}

// Creating a virtual table would also create the tables that hold its content, which are copied.
void copy_virtual_tables(const Database& from, const Database& to) {
  Query read(from,
             "select type,name,tbl_name,rootpage,sql from sqlite_master where type='table' and "
             "rootpage=0");
  to.run("pragma writable_schema=on");
  while (read.row()) {
    Query write(to, "insert into sqlite_master values(?,?,?,?,?)");
    for (int i = 0; i < read.columns(); ++i) {
      sqlite3_bind_value(write.handle(), i + 1, sqlite3_column_value(read.handle(), i));
    }
    write.row();
  }
  to.run("pragma writable_schema=off");
}

std::string insert_row(const ContentTable& table) {
  std::string columns;
  std::string values;
  for (const std::string& column : table.columns) {
    columns += (columns.empty() ? "" : ",") + column;
    values += values.empty() ? "?" : ",?";
  }
  return "insert into " + identifier(table.name) + "(" + columns + ") values(" + values + ")";
}

void copy_rows(const Database& from, const Database& to, const ContentTable& table) {
  Query read(from, select_rows(table));
  Query write(to, insert_row(table));
  while (read.row()) {
    for (int i = 0; i < read.columns(); ++i) {
      sqlite3_bind_value(write.handle(), i + 1, sqlite3_column_value(read.handle(), i));
    }
    write.row();
    write.reset();
  }
}

// SQLite creates these tables itself, with rows of its own.
void copy_internal_table(const Database& from, const Database& to, const std::string& name) {
  for (const ContentTable& table : table_if_any(from, name)) {
    to.run("delete from " + identifier(name));
    copy_rows(from, to, table);
  }
}

// Other builds of SQLite have other tables of statistics. What is missing is left out.
void copy_statistics(const Database& from, const Database& to) {
  if (table_if_any(from, "sqlite_stat1").empty()) return;
  to.run("analyze sqlite_master");
  for (const char* const name : {"sqlite_stat1", "sqlite_stat4"}) {
    if (!table_if_any(to, name).empty()) copy_internal_table(from, to, name);
  }
}

}  // namespace

void copy_content(const Database& from, const Database& to) {
  to.run("pragma ignore_check_constraints=on");
  to.run("pragma foreign_keys=off");
  copy_settings(from, to);
  to.run("begin");
  create(from, to, "type='table' and rootpage>0 and substr(name,1,7) collate nocase<>'sqlite_'");
  for (const ContentTable& table : ordinary_tables(from)) copy_rows(from, to, table);
  create(from, to, "type='index'");
  copy_internal_table(from, to, "sqlite_sequence");
  copy_statistics(from, to);
  create(from, to, "type='view'");
  create(from, to, "type='trigger'");
  copy_virtual_tables(from, to);
  to.run("commit");
}

}  // namespace Corvan::encryption
