-- Server side of the configuration registry: schema "registry", its tables
-- and the eleven functions that qv_hivectl calls.
--
-- Load into an existing database with
--   psql -v ON_ERROR_STOP=1 -d DATABASE -f sql/registry.sql
-- Loading again is harmless: tables and indexes are kept, functions replaced,
-- and an older schema is upgraded in place (see "Schema version" below).
-- The packaged qv-hivectl-schema script loads, verifies and grants it.
--
-- Model. Every key is one row of registry.keys with its full path as first
-- spelled ("path"), the same with A-Z folded to a-z ("folded", the identity
-- of the key; byte-wise "C" collation) and the folded path of its parent.
-- The top of the registry is the row whose folded path is ''. Values hang on
-- the key's id, so renaming a subtree rewrites key rows only.
--
-- A subtree of folded path f is  folded = f  plus the range
--   folded > f || '\'  AND  folded < f || ']'
-- (']' is the byte after the backslash): an index range scan, with no LIKE
-- and so no escaping of '%' and '_' in key names.
--
-- Names compare without regard to ASCII case only: fold() translates A-Z and
-- nothing else, whatever the database's locale. The first writer's spelling
-- is kept.
--
-- Parameters arrive as untyped text; no function is overloaded, so every
-- call resolves to exactly one function.

SET standard_conforming_strings = on;
SET client_min_messages = warning;

BEGIN;

CREATE SCHEMA IF NOT EXISTS registry;

-- Schema version ------------------------------------------------------------
-- registry.schema_version() answers the version of the file last loaded.
-- Loading this file over an older schema first runs the numbered upgrade
-- steps from the version found up to this file's, in this file's one
-- transaction, before the tables, indexes and functions below are created or
-- replaced. A schema with registry.keys but no schema_version() is version 1.
-- A newer schema is refused, so that an older package cannot downgrade it.
DO $upgrade$
DECLARE
  file_version CONSTANT integer := 2;
  found integer;
BEGIN
  IF to_regprocedure('registry.schema_version()') IS NOT NULL THEN
    EXECUTE 'SELECT registry.schema_version()' INTO found;
  ELSIF to_regclass('registry.keys') IS NOT NULL THEN
    found := 1;
  END IF;
  IF found > file_version THEN
    RAISE EXCEPTION 'registry schema version % is newer than this file (version %)',
      found, file_version;
  END IF;

  -- Upgrade steps, oldest first; step N turns version N-1 into N and runs
  -- only on a schema older than N. A new schema skips them all.
  --
  -- Step 2: version 1 lacked schema_version() and the role grants; its
  -- tables and data stay as they are.

  EXECUTE format('CREATE OR REPLACE FUNCTION registry.schema_version() RETURNS integer
                    LANGUAGE sql IMMUTABLE PARALLEL SAFE AS $$ SELECT %s $$', file_version);
END
$upgrade$;

CREATE TABLE IF NOT EXISTS registry.keys (
  id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
  path text NOT NULL,
  folded text COLLATE "C" NOT NULL,
  parent text COLLATE "C"  -- folded path of the parent; NULL for the top
);
CREATE UNIQUE INDEX IF NOT EXISTS keys_folded ON registry.keys (folded);
CREATE INDEX IF NOT EXISTS keys_parent ON registry.keys (parent, folded);

CREATE TABLE IF NOT EXISTS registry.vals (
  key_id bigint NOT NULL REFERENCES registry.keys (id) ON DELETE CASCADE,
  folded_name text COLLATE "C" NOT NULL,
  name text NOT NULL,
  type smallint NOT NULL,  -- wire code: 1 str, 2 bin (base64), 3 i32, 4 i64
  value text NOT NULL,
  PRIMARY KEY (key_id, folded_name)
);

-- Helpers (not called by the client).

CREATE OR REPLACE FUNCTION registry.fold(p text) RETURNS text
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT translate(p, 'ABCDEFGHIJKLMNOPQRSTUVWXYZ',
                            'abcdefghijklmnopqrstuvwxyz') COLLATE "C" $$;

-- Creates the key at p_path and every missing level above it, the top
-- included. Levels go in top-down order, so concurrent callers wait for each
-- other on shared parents in one order; ON CONFLICT makes them no error.
CREATE OR REPLACE FUNCTION registry.make_key(p_path text) RETURNS void
  LANGUAGE sql VOLATILE
  AS $$
    INSERT INTO registry.keys (path, folded, parent)
    SELECT lvl, registry.fold(lvl),
           CASE WHEN i = 0 THEN NULL
                ELSE registry.fold(array_to_string(parts[1:i - 1], '\')) END
    FROM (SELECT string_to_array(p_path, '\') AS parts) s,
         LATERAL generate_series(0, coalesce(array_length(parts, 1), 0)) AS i,
         LATERAL array_to_string(parts[1:i], '\') AS lvl
    ORDER BY i
    ON CONFLICT (folded) DO NOTHING
  $$;

-- The folded path of the parent of a (non-top) path.
CREATE OR REPLACE FUNCTION registry.parent_of(p text) RETURNS text
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT CASE WHEN strpos(p, '\') = 0 THEN ''
                    ELSE registry.fold(left(p, length(p) - strpos(reverse(p), '\'))) END $$;

-- The eleven functions of the client.

CREATE OR REPLACE FUNCTION registry.has_key(p_path text) RETURNS boolean
  LANGUAGE sql STABLE
  AS $$ SELECT p_path = ''
            OR EXISTS (SELECT 1 FROM registry.keys WHERE folded = registry.fold(p_path)) $$;

CREATE OR REPLACE FUNCTION registry.has_value(p_path text, p_name text) RETURNS boolean
  LANGUAGE sql STABLE
  AS $$ SELECT EXISTS (SELECT 1 FROM registry.keys k
                       JOIN registry.vals v ON v.key_id = k.id
                       WHERE k.folded = registry.fold(p_path)
                         AND v.folded_name = registry.fold(p_name)) $$;

CREATE OR REPLACE FUNCTION registry.get_value(p_path text, p_name text)
  RETURNS TABLE (type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT v.type, v.value FROM registry.keys k
        JOIN registry.vals v ON v.key_id = k.id
        WHERE k.folded = registry.fold(p_path)
          AND v.folded_name = registry.fold(p_name) $$;

CREATE OR REPLACE FUNCTION registry.add_value(p_path text, p_name text, p_type integer,
                                              p_value text) RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    k bigint;
  BEGIN
    SELECT id INTO k FROM registry.keys WHERE folded = registry.fold(p_path);
    IF NOT FOUND THEN
      PERFORM registry.make_key(p_path);
      SELECT id INTO STRICT k FROM registry.keys WHERE folded = registry.fold(p_path);
    END IF;
    INSERT INTO registry.vals (key_id, folded_name, name, type, value)
    VALUES (k, registry.fold(p_name), p_name, p_type, p_value)
    ON CONFLICT (key_id, folded_name)
      DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
  END
  $$;

CREATE OR REPLACE FUNCTION registry.delete_value(p_path text, p_name text) RETURNS integer
  LANGUAGE sql VOLATILE
  AS $$
    WITH gone AS (
      DELETE FROM registry.vals v USING registry.keys k
      WHERE k.folded = registry.fold(p_path) AND v.key_id = k.id
        AND v.folded_name = registry.fold(p_name)
      RETURNING 1)
    SELECT CASE WHEN count(*) > 0 THEN 0 ELSE 1 END::integer FROM gone
  $$;

-- Removes the key with its values and everything below it. A path that ends
-- in a backslash, or the empty path, names the key before it (or the top)
-- whose values and subkeys are removed while the key itself stays.
CREATE OR REPLACE FUNCTION registry.delete_key(p_path text) RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    f text COLLATE "C" := registry.fold(p_path);
    keep boolean := f = '' OR right(f, 1) = '\';
  BEGIN
    IF keep THEN
      f := left(f, -1);
      DELETE FROM registry.vals v USING registry.keys k
      WHERE v.key_id = k.id AND k.folded = f;
      IF f = '' THEN
        DELETE FROM registry.keys WHERE folded <> '';
        RETURN;
      END IF;
    END IF;
    DELETE FROM registry.keys
    WHERE (folded = f AND NOT keep) OR (folded > f || '\' AND folded < f || ']');
  END
  $$;

-- Moves a subtree; an existing destination subtree is removed first, missing
-- levels above the destination are created. 0 on success, 1 if the source
-- does not exist or one path lies inside the other.
CREATE OR REPLACE FUNCTION registry.rename_key(p_from text, p_to text) RETURNS integer
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    f text COLLATE "C" := registry.fold(p_from);
    t text COLLATE "C" := registry.fold(p_to);
    n integer := length(f);
  BEGIN
    PERFORM 1 FROM registry.keys WHERE folded = f AND f <> '' FOR UPDATE;
    IF NOT FOUND OR t = '' THEN RETURN 1; END IF;
    IF f = t THEN RETURN 0; END IF;
    IF left(t, n + 1) = f || '\' OR left(f, length(t) + 1) = t || '\' THEN RETURN 1; END IF;
    DELETE FROM registry.keys WHERE folded = t OR (folded > t || '\' AND folded < t || ']');
    PERFORM registry.make_key(CASE WHEN strpos(p_to, '\') = 0 THEN ''
                              ELSE left(p_to, length(p_to) - strpos(reverse(p_to), '\')) END);
    UPDATE registry.keys
    SET path = p_to || substr(path, n + 1),
        folded = t || substr(folded, n + 1),
        parent = CASE WHEN folded = f THEN registry.parent_of(p_to)
                      ELSE t || substr(parent, n + 1) END
    WHERE folded = f OR (folded > f || '\' AND folded < f || ']');
    RETURN 0;
  END
  $$;

-- Copies a subtree into the destination, which keeps what the source lacks;
-- values of the same name are overwritten. 0 on success, 1 if the source
-- does not exist or one path lies inside the other.
CREATE OR REPLACE FUNCTION registry.copy_values(p_from text, p_to text) RETURNS integer
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    f text COLLATE "C" := registry.fold(p_from);
    t text COLLATE "C" := registry.fold(p_to);
    n integer := length(f);
  BEGIN
    PERFORM 1 FROM registry.keys WHERE folded = f AND f <> '' FOR SHARE;
    IF NOT FOUND OR t = '' THEN RETURN 1; END IF;
    IF f = t THEN RETURN 0; END IF;
    IF left(t, n + 1) = f || '\' OR left(f, length(t) + 1) = t || '\' THEN RETURN 1; END IF;
    PERFORM registry.make_key(p_to);
    INSERT INTO registry.keys (path, folded, parent)
    SELECT p_to || substr(path, n + 1), t || substr(folded, n + 1), t || substr(parent, n + 1)
    FROM registry.keys
    WHERE folded > f || '\' AND folded < f || ']'
    ORDER BY folded
    ON CONFLICT (folded) DO NOTHING;
    INSERT INTO registry.vals (key_id, folded_name, name, type, value)
    SELECT d.id, v.folded_name, v.name, v.type, v.value
    FROM registry.keys s
    JOIN registry.vals v ON v.key_id = s.id
    JOIN registry.keys d ON d.folded = t || substr(s.folded, n + 1)
    WHERE s.folded = f OR (s.folded > f || '\' AND s.folded < f || ']')
    ON CONFLICT (key_id, folded_name)
      DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
    RETURN 0;
  END
  $$;

CREATE OR REPLACE FUNCTION registry.get_values_cnt(p_path text) RETURNS integer
  LANGUAGE sql STABLE
  AS $$ SELECT count(*)::integer FROM registry.keys k
        JOIN registry.vals v ON v.key_id = k.id
        WHERE k.folded = registry.fold(p_path) $$;

CREATE OR REPLACE FUNCTION registry.get_values(p_path text)
  RETURNS TABLE (name text, type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT v.name, v.type, v.value FROM registry.keys k
        JOIN registry.vals v ON v.key_id = k.id
        WHERE k.folded = registry.fold(p_path)
        ORDER BY v.folded_name $$;

-- Full paths of the direct subkeys, in folded order.
CREATE OR REPLACE FUNCTION registry.get_subkeys(p_path text) RETURNS SETOF text
  LANGUAGE sql STABLE
  AS $$ SELECT path FROM registry.keys
        WHERE parent = registry.fold(p_path)
        ORDER BY folded $$;

-- Optional roles ------------------------------------------------------------
-- registry_reader may read (get, exists, show, export), registry_writer may
-- do everything. Loading this file does not create them (they are global to
-- the cluster, and creating them needs CREATEROLE); "qv-hivectl-schema grant"
-- does, and then calls registry.grant_roles(), which loading the file calls
-- too, so that the roles that exist cover the functions of this version.
CREATE OR REPLACE FUNCTION registry.grant_roles() RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  BEGIN
    IF to_regrole('registry_reader') IS NOT NULL THEN
      GRANT USAGE ON SCHEMA registry TO registry_reader;
      GRANT SELECT ON registry.keys, registry.vals TO registry_reader;
      GRANT EXECUTE ON FUNCTION registry.schema_version(), registry.has_key(text),
        registry.has_value(text, text), registry.get_value(text, text),
        registry.get_values_cnt(text), registry.get_values(text),
        registry.get_subkeys(text) TO registry_reader;
    END IF;
    IF to_regrole('registry_writer') IS NOT NULL THEN
      GRANT USAGE ON SCHEMA registry TO registry_writer;
      GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA registry TO registry_writer;
      GRANT USAGE ON ALL SEQUENCES IN SCHEMA registry TO registry_writer;
      GRANT EXECUTE ON ALL FUNCTIONS IN SCHEMA registry TO registry_writer;
    END IF;
  END
  $$;
DO $$ BEGIN PERFORM registry.grant_roles(); END $$;

COMMIT;
