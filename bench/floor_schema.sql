-- The floor of the server side, for bench/db_bench.sh: the cheapest schema
-- "registry" on which qv_hivectl's twelve statements work for one client at
-- a time. Flat tables keyed by folded path, one upsert per value, a key row
-- made only when it is missing; no locks, no long names, no versions, no
-- roles. Not for use: concurrent writers can leave keys without parents.

BEGIN;
CREATE SCHEMA registry;

CREATE TABLE registry.keys (
  folded text COLLATE "C" PRIMARY KEY,
  path text NOT NULL,
  parent text COLLATE "C"
);
CREATE INDEX keys_children ON registry.keys (parent, folded);

CREATE TABLE registry.vals (
  folded_path text COLLATE "C",
  folded_name text COLLATE "C",
  name text NOT NULL,
  type smallint NOT NULL,
  value text NOT NULL,
  PRIMARY KEY (folded_path, folded_name)
);

CREATE FUNCTION registry.fold(p text) RETURNS text
  LANGUAGE sql IMMUTABLE STRICT PARALLEL SAFE
  AS $$ SELECT lower(p COLLATE "C") $$;

-- Whether folded path k is folded path f or below it ('' holds everything).
CREATE FUNCTION registry.within(k text, f text) RETURNS boolean
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT f = '' OR k = f OR starts_with(k, f || '\') $$;

CREATE FUNCTION registry.has_key(p_path text) RETURNS boolean
  LANGUAGE sql STABLE
  AS $$ SELECT p_path = '' OR EXISTS (SELECT FROM registry.keys WHERE folded = registry.fold(p_path)) $$;

CREATE FUNCTION registry.get_value(p_path text, p_name text)
  RETURNS TABLE (type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT type, value FROM registry.vals
        WHERE folded_path = registry.fold(p_path) AND folded_name = registry.fold(p_name) $$;

CREATE FUNCTION registry.has_value(p_path text, p_name text) RETURNS boolean
  LANGUAGE sql STABLE
  AS $$ SELECT EXISTS (SELECT FROM registry.get_value(p_path, p_name)) $$;

-- Makes the key at p_path and the missing levels above it.
CREATE FUNCTION registry.make_levels(p_path text) RETURNS void
  LANGUAGE sql VOLATILE
  AS $$ INSERT INTO registry.keys (folded, path, parent)
        SELECT registry.fold(array_to_string(parts[1:depth], '\')), array_to_string(parts[1:depth], '\'),
               CASE WHEN depth > 0 THEN registry.fold(array_to_string(parts[1:depth - 1], '\')) END
        FROM string_to_array(p_path, '\') AS parts, generate_series(0, cardinality(parts)) AS depth
        ON CONFLICT DO NOTHING $$;

CREATE FUNCTION registry.add_value(p_path text, p_name text, p_type integer, p_value text)
  RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    key_folded text COLLATE "C" := registry.fold(p_path);
  BEGIN
    IF NOT EXISTS (SELECT FROM registry.keys WHERE folded = key_folded) THEN
      PERFORM registry.make_levels(p_path);
    END IF;
    INSERT INTO registry.vals VALUES (key_folded, registry.fold(p_name), p_name, p_type, p_value)
    ON CONFLICT (folded_path, folded_name) DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
  END
  $$;

CREATE FUNCTION registry.delete_value(p_path text, p_name text) RETURNS integer
  LANGUAGE sql VOLATILE
  AS $$ WITH gone AS (DELETE FROM registry.vals
                      WHERE folded_path = registry.fold(p_path) AND folded_name = registry.fold(p_name)
                      RETURNING 1)
        SELECT CASE WHEN count(*) > 0 THEN 0 ELSE 1 END FROM gone $$;

CREATE FUNCTION registry.delete_key(p_path text) RETURNS void
  LANGUAGE sql VOLATILE
  AS $$
    DELETE FROM registry.vals
    WHERE registry.within(folded_path, registry.fold(rtrim(p_path, '\')));
    DELETE FROM registry.keys
    WHERE registry.within(folded, registry.fold(rtrim(p_path, '\')))
      AND NOT (folded = registry.fold(rtrim(p_path, '\')) AND (p_path = '' OR right(p_path, 1) = '\'));
  $$;

-- rename_key and copy_values as the client sees them; 1 means refused.
CREATE FUNCTION registry.move_subtree(p_from text, p_to text, keep_source boolean) RETURNS integer
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    f text COLLATE "C" := registry.fold(p_from);
    t text COLLATE "C" := registry.fold(p_to);
    n integer := length(p_from);
  BEGIN
    IF NOT registry.has_key(p_from) OR starts_with(t, f || '\') OR starts_with(f, t || '\') THEN
      RETURN 1;
    END IF;
    IF f = t THEN RETURN 0; END IF;
    IF NOT keep_source THEN PERFORM registry.delete_key(p_to); END IF;
    PERFORM registry.make_levels(p_to);
    INSERT INTO registry.keys (folded, path, parent)
    SELECT t || substr(folded, n + 1), p_to || substr(path, n + 1), t || substr(parent, n + 1)
    FROM registry.keys WHERE starts_with(folded, f || '\')
    ON CONFLICT DO NOTHING;
    INSERT INTO registry.vals
    SELECT t || substr(folded_path, n + 1), folded_name, name, type, value
    FROM registry.vals WHERE registry.within(folded_path, f)
    ON CONFLICT (folded_path, folded_name) DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
    IF NOT keep_source THEN PERFORM registry.delete_key(p_from); END IF;
    RETURN 0;
  END
  $$;

CREATE FUNCTION registry.rename_key(p_from text, p_to text) RETURNS integer
  LANGUAGE sql VOLATILE AS $$ SELECT registry.move_subtree(p_from, p_to, false) $$;

CREATE FUNCTION registry.copy_values(p_from text, p_to text) RETURNS integer
  LANGUAGE sql VOLATILE AS $$ SELECT registry.move_subtree(p_from, p_to, true) $$;

CREATE FUNCTION registry.get_values_cnt(p_path text) RETURNS integer
  LANGUAGE sql STABLE
  AS $$ SELECT count(*)::integer FROM registry.vals WHERE folded_path = registry.fold(p_path) $$;

CREATE FUNCTION registry.get_values(p_path text) RETURNS TABLE (name text, type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT name, type, value FROM registry.vals WHERE folded_path = registry.fold(p_path)
        ORDER BY type = 2 AND value = '', folded_name $$;

-- PL/pgSQL keeps the plan across calls, also in a select list.
CREATE FUNCTION registry.get_subkeys(p_path text) RETURNS SETOF text
  LANGUAGE plpgsql STABLE
  AS $$ BEGIN
          RETURN QUERY SELECT path FROM registry.keys WHERE parent = registry.fold(p_path) ORDER BY folded;
        END $$;
COMMIT;
