-- Lets clients that speak the message archive in "urn:xmpp:mam:1" use
-- prosody's archive, which speaks "urn:xmpp:mam:2" only: the layout is the
-- same, so queries are renamed on the way in and answers on the way out.
local filters = require "util.filters";

local mam1 = "urn:xmpp:mam:1";
local mam2 = "urn:xmpp:mam:2";

local function rename_form_type(query, to)
	local form = query:get_child("x", "jabber:x:data");
	if not form then return; end
	for field in form:childtags("field") do
		if field.attr.var == "FORM_TYPE" then
			local value = field:get_child("value");
			if value then
				value[1] = to;
			end
		end
	end
end

local function incoming(stanza)
	if stanza.name == "iq" then
		local query = stanza:get_child("query", mam1);
		if query then
			query.attr.xmlns = mam2;
			rename_form_type(query, mam2);
		end
	end
	return stanza;
end

local function outgoing(stanza)
	local child;
	if stanza.name == "message" then
		child = stanza:get_child("result", mam2);
	elseif stanza.name == "iq" then
		child = stanza:get_child("fin", mam2);
	end
	if child then
		child.attr.xmlns = mam1;
	end
	return stanza;
end

local function attach(session)
	if session.type == "c2s" or session.type == "c2s_unauthed" then
		filters.add_filter(session, "stanzas/in", incoming);
		filters.add_filter(session, "stanzas/out", outgoing);
	end
end

filters.add_filter_hook(attach);

function module.unload()
	filters.remove_filter_hook(attach);
end
