# SPDX-License-Identifier: MIT
"""JSON documents and the schemas that say what may stand in them; which of their members were seen."""
import json
import os

from jsonschema import Draft202012Validator, RefResolver


class Schemas:
    def __init__(self, folder):
        self.all = {}
        for name in sorted(os.listdir(folder)):
            with open(os.path.join(folder, name), encoding="utf-8") as file:
                self.all[name] = json.load(file)
            Draft202012Validator.check_schema(self.all[name])
        self.resolvers = {name: RefResolver(name, schema, store=self.all) for name, schema in self.all.items()}
        self.seen = set()

    def validator(self, name, schema):
        return Draft202012Validator(schema, resolver=self.resolvers[name])

    def check(self, name, document):
        """What of the document the schema does not allow; nothing, and its members are seen."""
        name += ".schema.json"
        wrong = [f"{'/'.join(map(str, error.absolute_path))}: {error.message}"[:600]
                 for error in self.validator(name, self.all[name]).iter_errors(document)]
        if not wrong:
            self.see(name, self.all[name], document)
        return wrong

    def see(self, name, schema, document):
        if "$ref" in schema:
            other, _, pointer = schema["$ref"].partition("#")
            name = other or name
            self.see(name, self.resolvers[name].resolve_fragment(self.all[name], pointer), document)
        for form in schema.get("oneOf", []) + schema.get("anyOf", []):
            if self.validator(name, form).is_valid(document):
                self.see(name, form, document)
        if isinstance(document, dict):
            properties = schema.get("properties", {})
            for key in properties.keys() & document.keys():
                self.seen.add((id(properties), key))
                self.see(name, properties[key], document[key])
        if isinstance(document, list) and "items" in schema:
            for each in document:
                self.see(name, schema["items"], each)

    def unseen(self):
        return sorted(place for name, schema in self.all.items() for place in self.unseen_in(schema, name))

    def unseen_in(self, schema, place):
        for word in ("properties", "$defs"):
            for member, value in schema.get(word, {}).items():
                if word == "properties" and (id(schema[word]), member) not in self.seen:
                    yield f"{place}/{member}"
                yield from self.unseen_in(value, f"{place}/{member}")
        forms = schema.get("oneOf", []) + schema.get("anyOf", [])
        for form in forms + [schema[word] for word in ("items",) if word in schema]:
            yield from self.unseen_in(form, place)
