#include "Tools/hubctl/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

namespace hubctl {

namespace {

bool HasVerbs(const std::string& inNoun)
{
    return std::ranges::any_of(
        Commands(), [&](const Command& inCommand) { return inCommand.Noun() == inNoun && !inCommand.Verb().empty(); });
}

std::string NounHelp(const std::string& inNoun)
{
    const auto found = std::ranges::find(kNouns, inNoun, &Noun::mName);
    return found == kNouns.end() ? std::string() : std::string(found->mHelp);
}

void AddArgument(const Argument& inArgument, CLI::App& ioCommand)
{
    CLI::Option* option = nullptr;
    if (inArgument.mValue == ArgumentValue::Flag || inArgument.mValue == ArgumentValue::Switch) {
        option = ioCommand.add_flag(inArgument.mName, inArgument.mMeaning);
    } else {
        // The values are read from the option afterwards.
        option = ioCommand.add_option(
            inArgument.mName, [](const CLI::results_t&) { return true; }, inArgument.mMeaning);
        if (!inArgument.mLabel.empty()) option->type_name(inArgument.mLabel);
    }
    if (!inArgument.mDefault.empty() && inArgument.mValue == ArgumentValue::Text)
        option->default_str(inArgument.mDefault);
    if (!inArgument.mWords.empty()) option->check(CLI::IsMember(inArgument.mWords));
    if (inArgument.mKind == ArgumentKind::FreeField)
        option->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args(false);
    option->required(inArgument.mIsRequired);
}

}  // namespace

void AddCommands(CLI::App& ioApp)
{
    std::map<std::string, CLI::App*> nouns;
    for (const Command& command : Commands()) {
        const std::string verb = command.Verb();
        CLI::App*& noun = nouns[command.Noun()];
        if (noun == nullptr) {
            noun = ioApp.add_subcommand(command.Noun(), verb.empty() ? command.Help() : NounHelp(command.Noun()));
            noun->require_subcommand(verb.empty() ? 0 : 1, HasVerbs(command.Noun()) ? 1 : 0);
        }
        CLI::App* const added = verb.empty() ? noun : noun->add_subcommand(verb, command.Help());
        for (const Argument& argument : command.Arguments())
            AddArgument(argument, *added);
    }
}

const Command* ChosenCommand(const CLI::App& inApp, Values& outValues)
{
    std::string words;
    const CLI::App* chosen = &inApp;
    while (!chosen->get_subcommands().empty()) {
        chosen = chosen->get_subcommands().front();
        words += (words.empty() ? "" : " ") + chosen->get_name();
    }
    const Command* const command = FindCommand(words);
    if (command == nullptr) return nullptr;
    for (const Argument& argument : command->Arguments()) {
        const CLI::Option* const option = chosen->get_option(argument.mName);
        if (option->count() != 0) outValues[argument.mName] = option->results();
    }
    return command;
}

}  // namespace hubctl
