# Writes OUT, a C++ source holding the text of each schema file of DIR, so that
# the program makes the tables of an empty catalogue from the very files that
# schema/ holds. Run by media/CMakeLists.txt whenever a schema file changes.
set(rows "")
foreach(name sqlite3 postgresql mariadb firebird)
  file(READ "${DIR}/${name}.sql" text)
  string(APPEND rows "    {\"${name}.sql\", R\"schema(${text})schema\"},\n")
endforeach()
file(WRITE "${OUT}.new" "// Made from schema/*.sql by cmake/EmbedSchemas.cmake when the program is built.
#include \"media/CatalogueSchema.h\"

namespace ZELd {

const SchemaFile kSchemaFiles[kSchemaFileCount] = {
${rows}};

} // namespace ZELd
")
file(COPY_FILE "${OUT}.new" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.new")
