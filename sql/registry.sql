-- Server side of the configuration registry: schema "registry", its tables
-- and the eleven functions that qv_hivectl calls.
--
-- Load into an existing database with
--   psql -v ON_ERROR_STOP=1 -d DATABASE -f sql/registry.sql
-- Loading again is harmless: tables and their rows are kept, functions
-- replaced, and an older schema is upgraded in place (see "Schema version"
-- below). The packaged qv-hivectl-schema script loads, verifies and grants it.
--
-- Model. Every key is one row of registry.keys with its full path as first
-- spelled ("path"), the same with A-Z folded to a-z ("folded", the identity
-- of the key; byte-wise "C" collation) and the folded path of its parent.
-- The top of the registry is the row whose folded path is ''. Values hang on
-- the key's id, so renaming a subtree rewrites key rows only.
--
-- Names may be of any length. The unique indexes therefore hold ident(), a
-- SHA-256 of the folded text, and every look-up compares the text as well.
-- A subtree of folded path f is  folded = f  plus below(folded, f), the range
--   folded > f || '\'  AND  folded < f || ']'
-- (']' is the byte after the backslash), which below() also states on the
-- first 512 characters so that it is an index range scan on keys_prefix;
-- no LIKE, so no escaping of '%' and '_' in key names.
--
-- Names compare without regard to ASCII case only: fold() translates A-Z and
-- nothing else, whatever the database's locale. The first writer's spelling
-- is kept.
--
-- Concurrency. Every key's parent exists, whatever runs at the same time.
-- Making a key locks each of its levels FOR SHARE, top first, creating the
-- missing ones (hold_key); storing a value in an existing key locks just that
-- key FOR SHARE. A removal, rename or copy locks the existing levels above
-- the keys it works on FOR SHARE and those keys FOR UPDATE (a copy's source
-- FOR SHARE), all in folded order, before it reads the subtrees with a
-- snapshot taken after the locks. So a removal waits for a writer below its
-- key to commit and then sees what it made, and a writer that waited for a
-- removal makes the levels anew. Every function takes its locks in folded
-- order, in which a key comes before the keys below it, so no two wait for
-- each other in a circle.
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
  file_version CONSTANT integer := 3;
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
  --
  -- Step 3: versions up to 2 indexed whole names, which limited a name to
  -- about 2.7 kB. The statements after this block replace those indexes
  -- (they drop what an older load made and create what is missing, so they
  -- are harmless on any version); rows stay as they are.

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

CREATE TABLE IF NOT EXISTS registry.vals (
  key_id bigint NOT NULL REFERENCES registry.keys (id) ON DELETE CASCADE,
  folded_name text COLLATE "C" NOT NULL,
  name text NOT NULL,
  type smallint NOT NULL,  -- wire code: 1 str, 2 bin (base64), 3 i32, 4 i64
  value text NOT NULL
);

-- Helpers (not called by the client).

CREATE OR REPLACE FUNCTION registry.fold(p text) RETURNS text
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT translate(p, 'ABCDEFGHIJKLMNOPQRSTUVWXYZ',
                            'abcdefghijklmnopqrstuvwxyz') COLLATE "C" $$;

-- SHA-256 of the bytes of p (with its backslashes doubled, the escape
-- decoding gives back exactly those bytes). Indexes are built on it: it
-- must never change.
CREATE OR REPLACE FUNCTION registry.ident(p text) RETURNS bytea
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT sha256(decode(replace(p, '\', '\\'), 'escape')) $$;

-- Whether folded path k lies strictly below folded path f (f not the top).
-- The terms on left() follow from the others; they are there for the index.
CREATE OR REPLACE FUNCTION registry.below(k text, f text) RETURNS boolean
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT left(k, 512) >= left(f || '\', 512) AND left(k, 512) <= left(f || ']', 512)
               AND k > f || '\' AND k < f || ']' $$;

-- Indexes. Earlier loads indexed the whole texts, which limited a name to
-- about 2.7 kB; those indexes make way for these.
DROP INDEX IF EXISTS registry.keys_folded;
DROP INDEX IF EXISTS registry.keys_parent;
ALTER TABLE registry.vals DROP CONSTRAINT IF EXISTS vals_pkey;
CREATE UNIQUE INDEX IF NOT EXISTS keys_ident ON registry.keys (registry.ident(folded));
CREATE INDEX IF NOT EXISTS keys_prefix ON registry.keys (left(folded, 512));
CREATE INDEX IF NOT EXISTS keys_parent_ident ON registry.keys (registry.ident(parent));
CREATE UNIQUE INDEX IF NOT EXISTS vals_ident
  ON registry.vals (key_id, registry.ident(folded_name));

-- Locks the existing proper ancestors of folded path f FOR SHARE, top first.
CREATE OR REPLACE FUNCTION registry.share_ancestors(f text) RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    parts text[] := string_to_array(f, '\');
  BEGIN
    PERFORM 1 FROM registry.keys
    WHERE registry.ident(folded) = ANY (
      SELECT registry.ident(array_to_string(parts[1:i], '\'))
      FROM generate_series(0, coalesce(array_length(parts, 1), 0) - 1) AS i)
    ORDER BY folded
    FOR SHARE;
  END
  $$;

-- The id of the key at p_path (folded f, parent's folded path up), made if
-- missing, and locked FOR SHARE, or FOR UPDATE if exclusive, until the
-- transaction ends. A key that a concurrent transaction removes or renames
-- meanwhile is waited for and then made anew. The loop ends by itself only
-- for a name whose SHA-256 another name already holds.
CREATE OR REPLACE FUNCTION registry.hold_level(p_path text, f text, up text,
                                               exclusive boolean) RETURNS bigint
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    k bigint;
  BEGIN
    FOR attempt IN 1 .. 100 LOOP
      IF exclusive THEN
        SELECT id INTO k FROM registry.keys
        WHERE registry.ident(folded) = registry.ident(f) AND folded = f FOR UPDATE;
      ELSE
        SELECT id INTO k FROM registry.keys
        WHERE registry.ident(folded) = registry.ident(f) AND folded = f FOR SHARE;
      END IF;
      IF k IS NOT NULL THEN RETURN k; END IF;
      INSERT INTO registry.keys (path, folded, parent) VALUES (p_path, f, up)
      ON CONFLICT (registry.ident(folded)) DO NOTHING
      RETURNING id INTO k;
      IF k IS NOT NULL THEN RETURN k; END IF;
    END LOOP;
    RAISE EXCEPTION 'registry: key % can not be made', left(p_path, 200);
  END
  $$;

-- The id of the key at p_path, made with every missing level above it, the
-- top included; every level stays locked FOR SHARE (see hold_level). Levels
-- go top first, in folded order like every other lock. Yet a lock can land
-- out of that order: for a row that a concurrent rename has moved meanwhile,
-- PostgreSQL locks the moved row before it finds that it no longer matches.
-- The server then ends the circle by failing one of the waiters with
-- deadlock_detected; this function, delete_key, rename_key and copy_values
-- undo their own work and try again.
CREATE OR REPLACE FUNCTION registry.hold_key(p_path text) RETURNS bigint
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    parts text[] := string_to_array(p_path, '\');
    level text;
    up text COLLATE "C";
    k bigint;
  BEGIN
    FOR attempt IN 1 .. 10 LOOP
      BEGIN
        up := NULL;
        FOR i IN 0 .. coalesce(array_length(parts, 1), 0) LOOP
          level := array_to_string(parts[1:i], '\');
          k := registry.hold_level(level, registry.fold(level), up, false);
          up := registry.fold(level);
        END LOOP;
        RETURN k;
      EXCEPTION WHEN deadlock_detected THEN
        IF attempt = 10 THEN RAISE; END IF;
      END;
    END LOOP;
  END
  $$;

-- An older load's helper, replaced by hold_key.
DROP FUNCTION IF EXISTS registry.make_key(text);

-- The path of the parent of a (non-top) path, as spelled; '' for a level
-- below the top.
CREATE OR REPLACE FUNCTION registry.parent_path(p text) RETURNS text
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT CASE WHEN strpos(p, '\') = 0 THEN ''
                    ELSE left(p, length(p) - strpos(reverse(p), '\')) END $$;

-- The folded path of the parent of a (non-top) path.
CREATE OR REPLACE FUNCTION registry.parent_of(p text) RETURNS text
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT registry.fold(registry.parent_path(p)) $$;

-- The destination or source of a rename or copy: the empty path names the
-- key of empty name below the top, whose path is a single backslash (as a
-- key of empty name below R is 'R\').
CREATE OR REPLACE FUNCTION registry.move_path(p text) RETURNS text
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT CASE WHEN p = '' THEN '\' ELSE p END $$;

-- The eleven functions of the client.

CREATE OR REPLACE FUNCTION registry.has_key(p_path text) RETURNS boolean
  LANGUAGE sql STABLE
  AS $$ SELECT p_path = ''
            OR EXISTS (SELECT 1 FROM registry.keys
                       WHERE registry.ident(folded) = registry.ident(registry.fold(p_path))
                         AND folded = registry.fold(p_path)) $$;

CREATE OR REPLACE FUNCTION registry.has_value(p_path text, p_name text) RETURNS boolean
  LANGUAGE sql STABLE
  AS $$ SELECT EXISTS (SELECT 1 FROM registry.keys k
                       JOIN registry.vals v ON v.key_id = k.id
                       WHERE registry.ident(k.folded) = registry.ident(registry.fold(p_path))
                         AND k.folded = registry.fold(p_path)
                         AND registry.ident(v.folded_name) = registry.ident(registry.fold(p_name))
                         AND v.folded_name = registry.fold(p_name)) $$;

CREATE OR REPLACE FUNCTION registry.get_value(p_path text, p_name text)
  RETURNS TABLE (type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT v.type, v.value FROM registry.keys k
        JOIN registry.vals v ON v.key_id = k.id
        WHERE registry.ident(k.folded) = registry.ident(registry.fold(p_path))
          AND k.folded = registry.fold(p_path)
          AND registry.ident(v.folded_name) = registry.ident(registry.fold(p_name))
          AND v.folded_name = registry.fold(p_name) $$;

-- Stores into an existing key under a FOR SHARE lock on it; a missing key,
-- or one removed meanwhile, is made by hold_key.
CREATE OR REPLACE FUNCTION registry.add_value(p_path text, p_name text, p_type integer,
                                              p_value text) RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    f text COLLATE "C" := registry.fold(p_path);
    k bigint;
  BEGIN
    SELECT id INTO k FROM registry.keys
    WHERE registry.ident(folded) = registry.ident(f) AND folded = f FOR SHARE;
    IF k IS NULL THEN
      k := registry.hold_key(p_path);
    END IF;
    INSERT INTO registry.vals (key_id, folded_name, name, type, value)
    VALUES (k, registry.fold(p_name), p_name, p_type, p_value)
    ON CONFLICT (key_id, registry.ident(folded_name))
      DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
  END
  $$;

CREATE OR REPLACE FUNCTION registry.delete_value(p_path text, p_name text) RETURNS integer
  LANGUAGE sql VOLATILE
  AS $$
    WITH gone AS (
      DELETE FROM registry.vals v USING registry.keys k
      WHERE registry.ident(k.folded) = registry.ident(registry.fold(p_path))
        AND k.folded = registry.fold(p_path) AND v.key_id = k.id
        AND registry.ident(v.folded_name) = registry.ident(registry.fold(p_name))
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
    k bigint;
  BEGIN
    IF keep THEN f := left(f, -1); END IF;
    FOR attempt IN 1 .. 10 LOOP
      BEGIN
        PERFORM registry.share_ancestors(f);
        SELECT id INTO k FROM registry.keys
        WHERE registry.ident(folded) = registry.ident(f) AND folded = f FOR UPDATE;
        IF k IS NULL THEN RETURN; END IF;
        IF f = '' THEN
          DELETE FROM registry.vals WHERE key_id = k;
          DELETE FROM registry.keys WHERE id <> k;
          RETURN;
        END IF;
        DELETE FROM registry.keys WHERE registry.below(folded, f);
        IF keep THEN
          DELETE FROM registry.vals WHERE key_id = k;
        ELSE
          DELETE FROM registry.keys WHERE id = k;
        END IF;
        RETURN;
      EXCEPTION WHEN deadlock_detected THEN
        IF attempt = 10 THEN RAISE; END IF;
      END;
    END LOOP;
  END
  $$;

-- Locks, in folded order: the existing levels above folded path f FOR
-- SHARE, f FOR UPDATE (FOR SHARE unless f_exclusive), the levels above
-- p_to FOR SHARE and p_to FOR UPDATE, making those of p_to that are
-- missing. All callers lock in folded order, an ancestor before its
-- descendants, so that none waits for another in a circle. Answers whether
-- f exists.
CREATE OR REPLACE FUNCTION registry.seize_pair(f text, p_to text, f_exclusive boolean)
  RETURNS boolean
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    to_parts text[] := string_to_array(p_to, '\');
    f_parts text[] := string_to_array(f, '\');
    found_f boolean := false;
    lv record;
  BEGIN
    -- kind: 0 above f, 1 above p_to, 2 f, 3 p_to; a level above both is made.
    FOR lv IN
      SELECT DISTINCT ON (folded) folded, path, up, kind FROM (
        SELECT registry.fold(array_to_string(to_parts[1:i], '\')) COLLATE "C" AS folded,
               array_to_string(to_parts[1:i], '\') AS path,
               registry.fold(array_to_string(to_parts[1:i - 1], '\')) AS up,
               CASE WHEN i = cardinality(to_parts) THEN 3 ELSE 1 END AS kind
        FROM generate_series(0, cardinality(to_parts)) AS i
        UNION ALL
        SELECT array_to_string(f_parts[1:i], '\'), NULL, NULL,
               CASE WHEN i = cardinality(f_parts) THEN 2 ELSE 0 END
        FROM generate_series(0, cardinality(f_parts)) AS i) AS levels
      ORDER BY folded, kind DESC
    LOOP
      IF lv.kind = 0 OR (lv.kind = 2 AND NOT f_exclusive) THEN
        PERFORM 1 FROM registry.keys
        WHERE registry.ident(folded) = registry.ident(lv.folded) AND folded = lv.folded FOR SHARE;
      ELSIF lv.kind = 2 THEN
        PERFORM 1 FROM registry.keys
        WHERE registry.ident(folded) = registry.ident(lv.folded) AND folded = lv.folded FOR UPDATE;
      ELSE
        PERFORM registry.hold_level(lv.path, lv.folded, CASE WHEN lv.folded = '' THEN NULL ELSE lv.up END,
                                    lv.kind = 3);
      END IF;
      IF lv.kind = 2 THEN found_f := FOUND; END IF;
    END LOOP;
    RETURN found_f;
  END
  $$;

-- Moves a subtree; an existing destination subtree is removed first, missing
-- levels above the destination are created. 0 on success, 1 if the source
-- does not exist or one path lies inside the other.
CREATE OR REPLACE FUNCTION registry.rename_key(p_from text, p_to text) RETURNS integer
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    src text := registry.move_path(p_from);
    dst text := registry.move_path(p_to);
    f text COLLATE "C" := registry.fold(src);
    t text COLLATE "C" := registry.fold(dst);
    n integer := length(f);
  BEGIN
    IF NOT registry.has_key(src) THEN RETURN 1; END IF;
    IF f = t THEN RETURN 0; END IF;
    IF left(t, n + 1) = f || '\' OR left(f, length(t) + 1) = t || '\' THEN RETURN 1; END IF;
    FOR attempt IN 1 .. 10 LOOP
      BEGIN
        IF NOT registry.seize_pair(f, dst, true) THEN RETURN 1; END IF;
        DELETE FROM registry.keys WHERE registry.below(folded, t);
        DELETE FROM registry.keys
        WHERE registry.ident(folded) = registry.ident(t) AND folded = t;
        UPDATE registry.keys
        SET path = dst || substr(path, n + 1),
            folded = t || substr(folded, n + 1),
            parent = t || substr(parent, n + 1)
        WHERE registry.below(folded, f);
        UPDATE registry.keys
        SET path = dst, folded = t, parent = registry.parent_of(dst)
        WHERE registry.ident(folded) = registry.ident(f) AND folded = f;
        RETURN 0;
      EXCEPTION WHEN deadlock_detected THEN
        IF attempt = 10 THEN RAISE; END IF;
      END;
    END LOOP;
  END
  $$;

-- Copies a subtree into the destination, which keeps what the source lacks;
-- values of the same name are overwritten. 0 on success, 1 if the source
-- does not exist or one path lies inside the other.
CREATE OR REPLACE FUNCTION registry.copy_values(p_from text, p_to text) RETURNS integer
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    src text := registry.move_path(p_from);
    dst text := registry.move_path(p_to);
    f text COLLATE "C" := registry.fold(src);
    t text COLLATE "C" := registry.fold(dst);
    n integer := length(f);
  BEGIN
    IF NOT registry.has_key(src) THEN RETURN 1; END IF;
    IF f = t THEN RETURN 0; END IF;
    IF left(t, n + 1) = f || '\' OR left(f, length(t) + 1) = t || '\' THEN RETURN 1; END IF;
    FOR attempt IN 1 .. 10 LOOP
      BEGIN
        IF NOT registry.seize_pair(f, dst, false) THEN RETURN 1; END IF;
        INSERT INTO registry.keys (path, folded, parent)
        SELECT dst || substr(path, n + 1), t || substr(folded, n + 1), t || substr(parent, n + 1)
        FROM registry.keys
        WHERE registry.below(folded, f)
        ORDER BY folded
        ON CONFLICT (registry.ident(folded)) DO NOTHING;
        INSERT INTO registry.vals (key_id, folded_name, name, type, value)
        SELECT d.id, v.folded_name, v.name, v.type, v.value
        FROM registry.keys s
        JOIN registry.vals v ON v.key_id = s.id
        JOIN registry.keys d ON registry.ident(d.folded) = registry.ident(t || substr(s.folded, n + 1))
                            AND d.folded = t || substr(s.folded, n + 1)
        WHERE (registry.ident(s.folded) = registry.ident(f) AND s.folded = f)
           OR registry.below(s.folded, f)
        ON CONFLICT (key_id, registry.ident(folded_name))
          DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
        RETURN 0;
      EXCEPTION WHEN deadlock_detected THEN
        IF attempt = 10 THEN RAISE; END IF;
      END;
    END LOOP;
  END
  $$;

CREATE OR REPLACE FUNCTION registry.get_values_cnt(p_path text) RETURNS integer
  LANGUAGE sql STABLE
  AS $$ SELECT count(*)::integer FROM registry.keys k
        JOIN registry.vals v ON v.key_id = k.id
        WHERE registry.ident(k.folded) = registry.ident(registry.fold(p_path))
          AND k.folded = registry.fold(p_path) $$;

-- Empty bin values come last: a reader that takes a value of no bytes for
-- the end of the enumeration then misses only those.
CREATE OR REPLACE FUNCTION registry.get_values(p_path text)
  RETURNS TABLE (name text, type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT v.name, v.type, v.value FROM registry.keys k
        JOIN registry.vals v ON v.key_id = k.id
        WHERE registry.ident(k.folded) = registry.ident(registry.fold(p_path))
          AND k.folded = registry.fold(p_path)
        ORDER BY v.type = 2 AND v.value = '', v.folded_name $$;

-- Full paths of the direct subkeys, in folded order.
CREATE OR REPLACE FUNCTION registry.get_subkeys(p_path text) RETURNS SETOF text
  LANGUAGE sql STABLE
  AS $$ SELECT path FROM registry.keys
        WHERE registry.ident(parent) = registry.ident(registry.fold(p_path))
          AND parent = registry.fold(p_path)
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

-- Subtree value count (provisional) -----------------------------------------
-- The number of values stored in the key at key_path and in all keys below
-- it; 0 when there is no such key. key_path is a full path as the client
-- passes it to the functions above. qv-hivectl-backup compares an export's
-- record count with it.
BEGIN;
CREATE OR REPLACE FUNCTION registry.subtree_value_count(key_path text) RETURNS bigint
  LANGUAGE sql STABLE
  AS $$ SELECT CASE WHEN key_path = '' THEN (SELECT count(*) FROM registry.vals)
        ELSE (SELECT count(*) FROM registry.keys k
              JOIN registry.vals v ON v.key_id = k.id
              WHERE registry.ident(k.folded) = registry.ident(registry.fold(key_path))
                AND k.folded = registry.fold(key_path))
           + (SELECT count(*) FROM registry.keys k
              JOIN registry.vals v ON v.key_id = k.id
              WHERE registry.below(k.folded, registry.fold(key_path))) END $$;
DO $$
BEGIN
  IF to_regrole('registry_reader') IS NOT NULL THEN
    GRANT EXECUTE ON FUNCTION registry.subtree_value_count(text) TO registry_reader;
  END IF;
  IF to_regrole('registry_writer') IS NOT NULL THEN
    GRANT EXECUTE ON FUNCTION registry.subtree_value_count(text) TO registry_writer;
  END IF;
END
$$;
COMMIT;
-- End of subtree value count (provisional) ----------------------------------
